# Plain text, code and tables as the source of a manual page. Knows nothing of where they come from.
package Roff;
use strict;
use warnings;

sub head {
  my ($title, $section, $volume) = @_;
  return ".TH $title $section 2026-11-23 vdprep \"$volume\"\n";
}

sub escape {
  my ($text) = @_;
  $text =~ s/\\/\\e/g;
  $text =~ s/-/\\-/g;
  $text =~ s/^([.'])/\\&$1/mg;
  my %named = ("\xc3\x97" => '\(mu', "\xe2\x8a\x95" => '\(c+', "\xe2\x88\x92" => '\(mi', "\xe2\x80\xa6" => '...');
  $text =~ s/$_/$named{$_}/g for keys %named;
  return $text;
}

# A line of text for each sentence or part of it.
sub paragraph {
  my ($text) = @_;
  $text =~ s/\s*\n\s*/ /g;
  $text =~ s/([.:]) (?=[A-Z])/$1\n/g;
  $text =~ s/(.{1,64})(?: |$)/$1\n/mg;
  $text =~ s/\n+/\n/g;
  return escape($text);
}

sub code {
  my ($code) = @_;
  return ".PP\n.in +4n\n.EX\n" . escape($code) . "\n.EE\n.in\n";
}

# Paragraphs; lines set in by two blanks or more are a list that stays as it is.
sub text {
  my ($text) = @_;
  my $out = '';
  for my $block (split /\n\s*\n/, $text) {
    for my $piece (split /((?:^ {2,}.*(?:\n|$))+)/m, $block) {
      next if $piece !~ /\S/;
      $piece =~ s/\n+$//;
      $out .= $piece =~ /^ {2}/ ? code($piece =~ s/^ {2}//mgr) : ".PP\n" . paragraph($piece);
    }
  }
  return $out;
}

# No paragraph begins behind a heading: it has one.
sub write_page {
  my ($path, $page) = @_;
  $page =~ s/^(\.S[HS] .*\n)\.PP\n/$1/mg;
  open my $out, '>', $path or die "$path: $!\n";
  print $out $page;
  close $out or die "$path: $!\n";
}

# Rows of cells, the first the heading, as wide as a line allows.
sub table {
  my (@rows) = @_;
  my $columns = @{$rows[0]};
  my $format = join(' ', ('l') x ($columns - 1), 'lx');
  my $cells = join '', map { join("\t", map { "T{\n" . paragraph($_) . 'T}' } @$_) . "\n" } @rows;
  return ".PP\n.TS\n" . ('lb ' x $columns) . "\n$format.\n$cells.TE\n";
}

1;
