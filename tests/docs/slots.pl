#!/usr/bin/perl
# SPDX-License-Identifier: MIT
#
# slots.pl ROOT: the driver's guide lists every slot of the table once, with its number and name.
use strict;
use warnings;

my $root = shift // die "usage: slots.pl ROOT\n";

sub read_text {
	my $path = shift;
	open my $file, '<', $path or die "$path: $!\n";
	local $/;
	my $text = <$file>;
	return $text;
}

my $header = read_text("$root/include/vexil/pubif.h");
my $guide = read_text("$root/docs/driver-guide.md");
my (%slots, %told);
$slots{$1} = $2 while $header =~ m{/\*\s+(\d+) \*/ SERVICE\([^,]*, (\w+),}g;
my $faults = 0;
while ($guide =~ /^\| (\d+) \| `(\w+)` \|/mg) {
	my ($slot, $name) = ($1, $2);
	if (exists $told{$slot}) {
		print "slot $slot is listed twice\n";
		$faults++;
	}
	$told{$slot} = $name;
}
die "slots.pl: the header has " . keys(%slots) . " slots, not 57\n" unless keys %slots == 57;
for my $slot (sort { $a <=> $b } keys %{{%slots, %told}}) {
	my ($is, $said) = ($slots{$slot} // 'nothing', $told{$slot} // 'nothing');
	next if $is eq $said;
	print "slot $slot is $is; the guide says $said\n";
	$faults++;
}
print scalar(keys %told), " slots\n";
exit($faults ? 1 : 0);
