#!/usr/bin/perl
# SPDX-License-Identifier: MIT
#
# excerpts.pl ROOT: what pages show of a file stands in that file, whole lines, unchanged. A page says
# so with "<!-- from PATH -->" right before a block of code.
use strict;
use warnings;

my $root = shift // die "usage: excerpts.pl ROOT\n";

sub read_text {
	my $path = shift;
	open my $file, '<', $path or die "$path: $!\n";
	local $/;
	my $text = <$file>;
	return $text;
}

my ($excerpts, $faults) = (0, 0);
for my $page (glob("$root/docs/*.md"), glob("$root/examples/driver/*.md"), "$root/README.md") {
	my $text = read_text($page);
	my $announced = () = $text =~ /^<!-- from /mg;
	my $shown = 0;
	while ($text =~ /^<!-- from (\S+) -->\n```\w*\n(.*?)^```$/msg) {
		my ($path, $excerpt) = ($1, $2);
		$shown++;
		next if index("\n" . read_text("$root/$path"), "\n$excerpt") >= 0;
		print "$page: not in $path:\n$excerpt";
		$faults++;
	}
	if ($announced != $shown) {
		print "$page: announces $announced excerpts, has $shown\n";
		$faults++;
	}
	$excerpts += $shown;
}
die "excerpts.pl: no page has an excerpt\n" unless $excerpts;
print "$excerpts excerpts\n";
exit($faults ? 1 : 0);
