# Compares what strace saw of a program on the kernel's own nodes with the phone's trace: the arguments are the two
# files. Prints the calls that are in the first alone, and fails if there is one that the C library has no known
# reason for, or if the others differ.
use strict;
use warnings;

my %name = (
    (map { ("/dev/$_" => $_) } qw(vd6281 sensor_tunnel)),
    (map { ('/sys/devices/platform/soc/ac4b000.qcom,cci/ac4b000.qcom,cci:st,iridel@20/' . $_ => $_) }
      qw(iridel_enable iridel_read_byte iridel_write_byte)),
    '/mnt/vendor/persist/camera/ials_fac_test' => 'ials_fac_test',
    (map { ("/data/$_" => $_) } qw(unparsed_flicker_data flicker_data.wav)),
    '/vendor/lib64/libzelk_flicker.so' => 'libzelk_flicker.so');

# What the library asks of a file besides the calls of the trace, or the C library on its own: docs/integration.md
# names each with its permission.
my %known = map { $_ => 1 } (
    'newfstatat ials_fac_test',             # stat by the library, and fstat by stdio
    'newfstatat unparsed_flicker_data', 'newfstatat flicker_data.wav',    # fstat by stdio
    'write unparsed_flicker_data', 'write flicker_data.wav',              # the data of a dump
    map { "$_ libzelk_flicker.so" } qw(read pread64 newfstatat mmap close));    # the loader

my ($strace, $trace) = @ARGV;
my (@seen, %beyond);
open my $calls, '<', $strace or die "$strace: $!\n";
while (<$calls>) {
    my ($call, $arguments) = /^(?:\d+ +)?(\w+)\((.*)$/ or next;
    my ($path) = $arguments =~ m{^(?:-?\w+(?:<[^>]*>)?, )?"(/[^"]*)"};    # a call by path
    ($path) = $arguments =~ m{^\d+<([^>]*)>} if !defined $path;          # or by descriptor
    ($path) = $arguments =~ m{, \d+<([^>]*)>, 0(?:x[0-9a-f]+)?\) = } if $call eq 'mmap';
    my $node = defined $path ? $name{$path} : undef;
    next if !defined $node;
    my ($error) = / = -1 (E[A-Z]+)/;
    my $failed = defined $error ? " failed ($error)" : '';
    if ($known{"$call $node"}) {
        $beyond{"$call $node"}++;
    } elsif ($call eq 'openat') {
        push @seen, ($node =~ /zelk/ ? "dlopen $path" : "open $node") . $failed;
    } elsif ($call eq 'write' && $node eq 'iridel_write_byte') {
        my ($register, $value) = $arguments =~ /"0x([0-9a-f]{1,2})([0-9a-f]{2})\\0", /;
        push @seen, defined $value ? sprintf('write %02x=%s', hex $register, $value) . $failed : "write $arguments";
    } elsif ($call eq 'write') {
        push @seen, "write $node " . ($arguments =~ /("[^"]*")/)[0] . $failed;
    } elsif ($call eq 'ioctl') {
        my ($request) = $arguments =~ /, 0x([0-9a-f]+)/;
        push @seen, "ioctl $node $request$failed";
    } else {
        push @seen, "$call $node$failed";
    }
}

my @traced;
open my $lines, '<', $trace or die "$trace: $!\n";
while (<$lines>) {
    chomp;
    next if /^log / || /^$/;
    s/^read [0-9a-f]{2}(\.\.[0-9a-f]{2})?(=[0-9a-f]{2})?(?= failed|$)/ioctl vd6281 c1085201/;
    s/^tunnel (24|19)/ioctl sensor_tunnel 4b$1/;
    s/^tunnel (22|23) [^ ]*/ioctl sensor_tunnel c0104b$1/;
    push @traced, $_;
}

die "no call on a node was seen\n" if !@seen;
for my $i (0 .. ($#seen > $#traced ? $#seen : $#traced)) {
    my ($by_strace, $by_phone) = ($seen[$i] // 'nothing', $traced[$i] // 'nothing');
    die "call $i: strace saw \"$by_strace\", the phone \"$by_phone\"\n" if $by_strace ne $by_phone;
}
printf "%d system calls on the nodes, all of them in the trace; beside them", scalar @seen;
print map { " $_ ($beyond{$_})" } sort keys %beyond;
print "\n";
