# A public header taken apart: its opening comment, and in each section the items, which are declarations with
# the comment above them. Knows nothing of what is made of it.
package Header;
use strict;
use warnings;

# The text of a comment, without its frame.
sub plain {
  my ($comment) = @_;
  $comment =~ s{^/\*\s?}{};
  $comment =~ s{\s*\*/\s*$}{};
  $comment =~ s{^ \*(?: |$)}{}mg;
  return $comment;
}

# { opening, sections => [{ title, intro, items => [{ text, code, name }] }] }. Declarations that follow each
# other without a comment between them are one item.
sub read_header {
  my ($file) = @_;
  open my $in, '<', $file or die "$file: $!\n";
  my $rest = do { local $/; <$in> };
  $rest =~ s{^#ifdef __cplusplus\n.*?^#endif\n}{}msg;
  $rest =~ s{^\s*(/\*.*?\*/)}{}s or die "$file: no opening comment\n";
  my %header = (opening => plain($1), sections => []);
  my $text = '';
  while ($rest =~ s{^(\s*)(.*?\S.*?)(?:\n|$)}{}) {
    my ($gap, $line) = ($1, $2);
    if ($line =~ m{^/\*}) {
      $line .= $rest =~ s{^(.*?\*/)}{}s ? "\n$1" : '' until $line =~ m{\*/};
      $text = plain($line);
      next unless $text =~ s{^---- (.*?) ----\s*}{};
      push @{$header{sections}}, {title => $1, intro => $text, items => []};
      $text = '';
    } elsif ($line !~ m{^#(?!define)|^\#define \w+_H$}) {
      $line .= $rest =~ s{^(.*?)(?:\n|$)}{} ? "\n$1" : '' until ended($line) || $rest eq '';
      push @{$header{sections}}, {title => 'General', intro => '', items => []} unless @{$header{sections}};
      my $section = $header{sections}[-1];
      my $last = $section->{items}[-1];
      if ($text eq '' && $last && $gap !~ /\n/) {
        $last->{code} .= "\n$line";
      } else {
        push @{$section->{items}}, {text => $text, code => $line, name => operation($line)};
      }
      $text = '';
    }
  }
  return \%header;
}

# Whether a declaration is complete.
sub ended {
  my ($code) = @_;
  $code =~ s{/\*.*?\*/}{}gs;
  return 0 if $code =~ tr/{// != $code =~ tr/}//;
  return $code =~ /^#/ || $code =~ /[;}]\s*$/;
}

# The name of the function or variable that it declares, else the empty text.
sub operation {
  my ($code) = @_;
  return '' if $code =~ /^(?:typedef|enum|#)/;
  return $code =~ /(\w+)(?:\(|\[\];)/ ? $1 : '';
}

1;
