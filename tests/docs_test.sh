#!/usr/bin/env bash
# docs/integration.md is true: it lists every log line of the library with its priority and no other,
# names every file that the library opens and allows the requests that it makes, and its factory file
# gives the factors that it tells. Takes the source folder and, where it is built, spectralsensorctl.
set -euo pipefail
cd "$1"
tool=${2:-}
page=docs/integration.md
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
fail() {
  echo "$1"
  exit 1
}

# What the sources hand to the log's front, as lines "PRIORITY TEXT", and their literals that are paths.
# Reads tokens rather than lines: a call may go over several, and a text be several literals.
cat >"$folder/scan.pl" <<'PERL'
use strict;
use warnings;

my ($what, @files) = @ARGV;
my $literal = qr/"(?:[^"\\\n]|\\.)*"/;
my $character = qr/(?<![0-9A-Fa-f])'(?:[^'\\\n]|\\.)+'/;
my %letter = (Debug => 'D', Info => 'I', Warning => 'W', Error => 'E');
my %front = (SPECTRAL_LOG => undef, SPECTRAL_LOG_ERROR => 'E', SPECTRAL_LOG_WARNING => 'W');
my $failed = 0;

sub complain {
  print STDERR "@_\n";
  $failed = 1;
}

# The arguments of the call whose opening parenthesis was just read from $$code.
sub arguments {
  my ($code) = @_;
  my ($depth, @arguments) = (1, '');
  while ($$code =~ /\G($literal|$character|[^"'(){}\[\],]+|.)/gcs) {
    my $token = $1;
    ++$depth if $token =~ /^[({\[]$/;
    --$depth if $token =~ /^[)}\]]$/;
    return @arguments if $depth == 0;
    if ($depth == 1 && $token eq ',') {
      push @arguments, '';
    } else {
      $arguments[-1] .= $token;
    }
  }
  return ();
}

sub scan_log_calls {
  my ($file, $code) = @_;
  pos($code) = 0;
  while ($code =~ /\G(?:$literal|$character|(\w+)(\s*\()?|.)/gcs) {
    my ($name, $is_call) = ($1, $2);
    next unless defined $name && $name =~ /^(?:SPECTRAL_LOG|__android_log_)/;
    next if $name =~ /^__android_log_/ && $file =~ m{^platform/};
    if (!exists $front{$name} || !$is_call) {
      complain("$file: $name is not a call of the log's front");
      next;
    }
    my @given = arguments(\$code);
    my $priority = $front{$name};
    $priority = (shift(@given) // '') =~ /\bkLog([A-Z]\w+)/ ? $letter{$1} : undef unless $priority;
    my $format = $given[1] // '';
    if (!$priority || $format !~ /^\s*(?:$literal\s*)+$/) {
      complain("$file: no priority, or no literal for a text, in $name(@given)");
      next;
    }
    print "$priority ", join('', $format =~ /"((?:[^"\\\n]|\\.)*)"/g), "\n";
  }
}

for my $file (@files) {
  open my $in, '<', $file or die "$file: $!";
  my $code = do { local $/; <$in> };
  complain("$file: raw literals are not understood here") if $code =~ /\bR"/;
  $code =~ s{($literal|$character)|//[^\n]*|/\*.*?\*/}{defined $1 ? $1 : ' '}gse;
  $code =~ s/^[ \t]*#(?:\\\n|[^\n])*//gm;
  scan_log_calls($file, $code) if $what eq 'log';
  if ($what eq 'paths') {
    print map { "$_\n" } $code =~ m{"(/[a-z][^"\s]*)"}g;
  }
}
exit $failed;
PERL
mapfile -t sources < <(find driver flicker service platform -name '*.h' -o -name '*.cpp' | LC_ALL=C sort)
scan() {
  perl "$folder/scan.pl" "$1" "${sources[@]}"
}
export LC_ALL=C

# The log: rows "| `text` | E, W | ...".
scan log >"$folder/calls"
sort -u "$folder/calls" >"$folder/code"
[ "$(wc -l <"$folder/code")" -gt 40 ] || fail "hardly any log line found in the sources"
sed -n '/^## Log lines$/,/^## [^L]/p' "$page" |
  perl -ne 'if (/^\| `(.*?)` \| ([DIWE](?:, [DIWE])*) \|/) { print "$_ $1\n" for split /, /, $2 }' |
  sort >"$folder/page"
diff "$folder/page" "$folder/code" || fail "$page and the sources (>) have other log lines"

# Every path is named.
scan paths | sort -u >"$folder/paths"
[ "$(wc -l <"$folder/paths")" -gt 6 ] || fail "hardly any path found in the sources"
while read -r path; do
  grep -F -- "$path" "$page" >/dev/null || fail "$page does not name $path"
done <"$folder/paths"

# The requests, as SELinux counts them: their low 16 bits.
for request in $(grep -oE '= 0x[0-9A-F]+;' driver/nodes.h | tr -d '=; '); do
  printf '0x%04x\n' $((request & 0xFFFF))
done | sort >"$folder/requests"
[ "$(wc -l <"$folder/requests")" = 5 ] || fail "not five requests in driver/nodes.h"
grep '^allowxperm' "$page" | grep -oE '0x[0-9a-f]+' | sort >"$folder/allowed"
diff "$folder/allowed" "$folder/requests" || fail "$page and driver/nodes.h (>) have other requests"

# The factory file, on the phone model that the page takes.
[ -n "$tool" ] || exit 0
sed -n '/^<!-- factory file -->$/,/^```$/p' "$page" | sed '1,2d;$d' >"$folder/factory"
# shellcheck disable=SC2086
LD_PRELOAD=$(dirname "$tool")/libspectralsim.so SPECTRALSIM_TIME=virtual SPECTRALSIM_MODEL=ostrel \
  SPECTRALSIM_FACTORY_FILE="$folder/factory" ${EMULATOR-} "$tool" info >"$folder/info"
[ "$(grep -cE "^ +[0-5] .*[0-9]$" "$folder/info")" = 6 ] || fail "info has no six factors"
while read -r line; do
  grep -xF -- "    $line" <(sed -E "s/^ +/    /" "$page") >/dev/null || fail "$page does not tell: $line"
done < <(grep -E "^channel|^ +[0-5] " "$folder/info")
