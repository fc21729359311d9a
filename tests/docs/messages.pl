#!/usr/bin/perl
# SPDX-License-Identifier: MIT
#
# messages.pl ROOT: docs/messages.md against the sources. Every format that is logged must have its
# place in the page, and the page none that no source has; the same for the functions that report and
# for the numbers of internal failures and preset documents.
use strict;
use warnings;

my $root = shift // die "usage: messages.pl ROOT\n";
my (%formats, %reporters, %failures, %presets);
my $string = qr/"((?:[^"\\]|\\.)*)"/;
my $names = qr/^_*(?:pim|rm|ctrie|extmem|presetdb|graphic_presetdb)_\w+$/;

sub read_text {
	my $path = shift;
	open my $file, '<', $path or die "$path: $!\n";
	local $/;
	my $text = <$file>;
	return $text;
}

# ---- sources

for my $path (map { glob "$root/$_/*.cpp $root/$_/*.h" } qw(core extmem pim rm presetdb verify module)) {
	my $text = read_text($path);
	# Comments go, texts stay.
	$text =~ s{("(?:[^"\\]|\\.)*"|'(?:[^'\\]|\\.)*')|//[^\n]*|/\*.*?\*/}{$1 // ' '}gse;
	$text =~ s/^\s*#.*$//mg;
	# Texts that follow each other are one.
	$text =~ s/$string\s+(?=")/"$1"\x01/g;
	$text =~ s/"\x01"//g;

	while ($text =~ /$string/g) {
		my $literal = $1;
		$formats{$literal} = $path if $literal =~ /%|\\n|^\[VEXIL\]/;
		$reporters{$literal} = $path if $literal =~ $names;
	}
	while ($text =~ /\b(?:_printk|print|print_error)\(\s*$string/g) {
		$formats{$1} = $path;
	}
	# lib_fail(function, number): a name or the names that callers pass, numbers by their constants.
	my %number = $text =~ /\bint (k\w+) = (\d+);/g;
	my @functions = $text =~ /\bkFunction = $string/g;
	while ($text =~ /\blib_fail\((?!const)([^;]*?)\);/gs) {
		my $arguments = $1;
		my @by = $arguments =~ /$string/ ? ($1) : @functions;
		my @numbers = map { $number{$_} // die "$path: no number $_\n" } $arguments =~ /\b(k\w+Report)\b/g;
		die "$path: cannot read lib_fail($arguments)\n" unless @by && @numbers;
		for my $by (@by) {
			$failures{"$by $_"} = $path for @numbers;
		}
	}
}

my $table = read_text("$root/presetdb/table.h");
my $parser = read_text("$root/presetdb/presetdb.cpp");
my %members;
while ($table =~ /constexpr Member (k\w+)\[\] = \{(.*?)\n\};/gs) {
	my ($group, $rows) = ($1, $2);
	while ($rows =~ /\{"\w+", Member::k\w+, (?:VEXIL_IN\([^)]*\)|\d+), (\d+), (\d+)/g) {
		push @{$members{$group}}, grep { $_ } $1, $2;
	}
}
my ($gain) = $table =~ /kGainMissing = (\d+)/;
my ($no_preset) = $parser =~ /kNoPresetReport = (\d+)/;
$presets{"graphic_presetdb_parse $no_preset"} = 1;
my ($all_rows) = $table =~ /constexpr Group kGroups\[\] = \{(.*?)\n\};/s;
while ($all_rows =~ /\{"\w+", "(\w+)", (\d+), (\d+), VEXIL_GROUP_AT\(\w+\), (k\w+),\s*(nullptr|"\w+")/g) {
	my ($function, $missing, $group, $list, $gain_key) = ($1, $2, $3, $4, $5);
	$presets{"$function $_"} = 1 for $missing, @{$members{$list}}, $gain_key eq 'nullptr' ? () : $gain;
	$presets{"graphic_presetdb_parse $group"} = 1;
}

# ---- the page

my $page = read_text("$root/docs/messages.md");
my (%told, %told_reporters, %told_failures, %told_presets, @faults);
for my $section (split /^(?=##+ )/m, $page) {
	my $format = $section =~ /^### `(.*)`$/m ? $1 : undef;
	my $dumps = $section =~ /^## Dumps/;
	if (defined $format) {
		push @faults, "twice in the page: $format" if $told{$format}++;
		if ($format !~ /vexil lib fail|PresetDB/) {
			# "By `a`, `b`": the names up to the end of the list.
			while ($section =~ /\bBy ((?:`\w+`(?:,\s*)?)+)/g) {
				$told_reporters{$_} = 1 for $1 =~ /`(\w+)`/g;
			}
			push @faults, "no cause: $format" unless $section =~ /\b[Cc]ause:? \w/;
		}
	}
	my $rows = $dumps ? undef : ($format // '') =~ /vexil lib fail/ ? \%told_failures
		: ($format // '') =~ /PresetDB/ ? \%told_presets : undef;
	while ($rows && $section =~ /^\| `(\w+)` \| ([\d, ]+) \|/mg) {
		my ($function, $numbers) = ($1, $2);
		$told_reporters{$function} = 1;
		for my $number (split /, */, $numbers) {
			push @faults, "twice in the page: $function $number" if $rows->{"$function $number"}++;
		}
	}
	while ($dumps && $section =~ /^\| `(.*?)` \|/mg) {
		push @faults, "twice in the page: $1" if $told{$1}++;
	}
}

sub compare {
	my ($what, $sources, $told) = @_;
	push @faults, map { "$what missing in the page: $_" } grep { !$told->{$_} } sort keys %$sources;
	push @faults, map { "$what that no source has: $_" } grep { !$sources->{$_} } sort keys %$told;
}
compare('message', \%formats, \%told);
compare('reporting function', \%reporters, \%told_reporters);
compare('internal failure', \%failures, \%told_failures);
compare('preset number', \%presets, \%told_presets);

print "$_\n" for @faults;
my $counts = join ', ', scalar(keys %formats) . ' messages', scalar(keys %failures) . ' internal failures',
	scalar(keys %presets) . ' preset numbers';
die "messages.pl: the sources hold too little ($counts)\n" if keys %formats < 40 || keys %presets < 40;
print "$counts\n";
exit(@faults ? 1 : 0);
