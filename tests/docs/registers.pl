#!/usr/bin/perl
# SPDX-License-Identifier: MIT
#
# registers.pl ROOT: the example driver's register table, its product's register list and its product's
# register table for the desk name the same fields in the same order, with the same places.
use strict;
use warnings;

my $root = shift // die "usage: registers.pl ROOT\n";
my $driver = "$root/examples/driver";

sub read_text {
	my $path = shift;
	open my $file, '<', $path or die "$path: $!\n";
	local $/;
	my $text = <$file>;
	return $text;
}

my $header = read_text("$root/include/vexil/reg_info.h");
my %domain = $header =~ /\b(E_PQ_\w+_DOMAIN) = (\d+)/g;
my $table = read_text("$driver/pq_registers.c");
my (@code, @desk, @listed);
while ($table =~ /^\tFIELD\((\w+), (0x[0-9A-Fa-f]+), (\d+), (\d+)\), \/\* (\w+) \*\/$/mg) {
	push @code, "$5 in domain " . ($domain{$1} // $1) . " at " . hex($2) . ", bit $3, $4 bits";
}
my $desk = read_text("$driver/product/reginfo.json");
while ($desk =~ /"name": "(\w+)", "domain": (\d+), "addr": "(0x[0-9a-f]+)", "lsb": (\d+), "width": (\d+)/g) {
	push @desk, "$1 in domain $2 at " . hex($3) . ", bit $4, $5 bits";
}
my $list = read_text("$driver/product/registers/hardware.json");
while ($list =~ /\{ "(\w+)": (\d+) \}/g) {
	die "registers.pl: $1 has position $2, not " . @listed . "\n" unless $2 == @listed;
	push @listed, $1;
}
die "registers.pl: no fields\n" unless @code && @desk && @listed;

my $faults = 0;
my $most = (sort { $b <=> $a } scalar @code, scalar @desk, scalar @listed)[0];
for my $i (0 .. $most - 1) {
	my ($in_code, $on_desk, $name) = map { $_ // 'nothing' } $code[$i], $desk[$i], $listed[$i];
	next if $in_code eq $on_desk && $on_desk =~ /^\Q$name\E /;
	print "position $i: the driver has $in_code; reginfo.json $on_desk; hardware.json $name\n";
	$faults++;
}
print scalar(@code), " fields\n";
exit($faults ? 1 : 0);
