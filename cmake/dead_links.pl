# Fails if a page of HTML shows a picture or links to a file or an anchor that does not exist. Takes the
# folder of the pages.
use strict;
use warnings;

my $folder = shift;
my %anchors;    # of each page: the names that a link can lead to
my @links;      # page, file, anchor

for my $path (glob "$folder/*.html") {
  open my $in, '<', $path or die "$path: $!\n";
  my $html = do { local $/; <$in> };
  my $page = $path =~ s{.*/}{}r;
  $anchors{$page}{$_} = 1 for $html =~ /\b(?:id|name)="([^"]+)"/g;
  for my $link ($html =~ /<(?:a|img|link|script|iframe|object|area)\b[^>]*?\b(?:href|src|data)="([^"]+)"/g) {
    next if $link =~ /^(?:[a-z]+:|\/\/)/;    # another server, mail, or a script
    my ($file, $anchor) = $link =~ /^([^#?]*)[^#]*(?:#(.*))?$/;
    push @links, [$page, $file eq '' ? $page : $file, $anchor // ''];
  }
}
die "$folder has no pages\n" unless %anchors;

my %dead;
for my $link (@links) {
  my ($page, $file, $anchor) = @$link;
  my $is_alive = -e "$folder/$file" && ($anchor eq '' || !$anchors{$file} || $anchors{$file}{$anchor});
  $dead{"$page: $file" . ($anchor eq '' ? '' : "#$anchor")} = 1 unless $is_alive;
}
print STDERR "dead link in $_\n" for sort keys %dead;
exit(%dead ? 1 : 0);
