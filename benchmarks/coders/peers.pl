#!/usr/bin/perl
# Coders written in C that are called from Perl, as peers.py: peers.pl FOLDER check, or peers.pl FOLDER SECONDS.
# "uulib" is uudeview's library, which reads a file and writes one.
use strict;
use warnings;
use Convert::UUlib ':all';
use MIME::Base64;
use MIME::QuotedPrint;
use Time::HiRes qw(clock_gettime CLOCK_PROCESS_CPUTIME_ID);

my ($folder, $mode) = @ARGV;

sub content {
  my ($name) = @_;
  open my $file, '<:raw', "$folder/$name" or die "$name: $!";
  local $/;
  return scalar <$file>;
}

sub write_file {
  my ($name, $content) = @_;
  open my $file, '>:raw', "$folder/$name" or die "$name: $!";
  print $file $content;
  close $file or die "$name: $!";
  return "$folder/$name";
}

sub data { return content("$_[0].data") }
sub text { return content("$_[0].text") }
sub without_breaks { return $_[0] =~ tr/\r\n//dr }

my $raw = data('md5');
my $mail = data('qp-encode-text') =~ s/\r\n/\n/gr;  # as Perl has text
my $uu = text('uu-decode');
my %coded = map { $_ => text($_) } qw(base64-decode qp-decode-text qp-decode-random hex-decode);
my $is_raw = sub { $_[0] eq $raw };

sub by_uulib {
  my ($path) = @_;
  SetOption OPT_SAVEPATH, "$folder/";
  SetOption OPT_OVERWRITE, 1;
  LoadFile $path;
  for my $file (GetFileList) {
    $file->decode("$folder/uulib.out");
  }
  CleanUp;
  Initialize;
  return 1;
}

my $size = length $raw;
my $is_file = sub { content('uulib.out') eq $raw };
my @peers = (
  ['base64-encode', 'Perl', sub { encode_base64($raw, "\r\n") },
    sub { without_breaks($_[0]) eq without_breaks(text('base64-encode')) }],
  ['base64-decode', 'Perl', sub { decode_base64($coded{'base64-decode'}) }, $is_raw],
  ['uu-encode', 'Perl', sub { pack 'u45', $raw }, sub { index(without_breaks($uu), without_breaks($_[0])) == 0 }],
  ['uu-decode', 'Perl', sub { unpack 'u', $uu }, $is_raw],
  ['qp-encode-text', 'Perl', sub { encode_qp($mail, "\r\n") }, sub { decode_qp($_[0]) eq $mail }],
  ['qp-decode-text', 'Perl', sub { decode_qp($coded{'qp-decode-text'}) },
    sub { without_breaks($_[0]) eq without_breaks($mail) }],
  ['qp-encode-random', 'Perl', sub { encode_qp($raw, "\r\n", 1) }, sub { decode_qp($_[0]) eq $raw }],
  ['qp-decode-random', 'Perl', sub { decode_qp($coded{'qp-decode-random'}) }, $is_raw],
  ['hex-encode', 'Perl', sub { unpack 'H*', $raw }, sub { uc $_[0] eq $coded{'hex-decode'} }],
  ['hex-decode', 'Perl', sub { pack 'H*', $coded{'hex-decode'} }, $is_raw],
);
my $yenc = "=ybegin line=128 size=$size name=out\r\n" . text('yenc-decode') . "=yend size=$size\r\n";
my %files = (
  'uu-decode' => write_file('uulib.uu', "begin 644 out\r\n${uu}end\r\n"),
  'xx-decode' => write_file('uulib.xx', "begin 644 out\r\n" . text('xx-decode') . "end\r\n"),
  'binhex-decode' => write_file('uulib.hqx', text('binhex-decode')),
  'yenc-decode' => write_file('uulib.yenc', $yenc),
);
Initialize;
for my $job (sort keys %files) {
  push @peers, [$job, 'uulib', sub { by_uulib($files{$job}) }, $is_file];
}

sub seconds_of {
  my ($call) = @_;
  my $start = clock_gettime(CLOCK_PROCESS_CPUTIME_ID);
  for (my $calls = 1;; ++$calls) {
    my $result = $call->();
    my $elapsed = clock_gettime(CLOCK_PROCESS_CPUTIME_ID) - $start;
    return $elapsed / $calls if $elapsed >= $mode;
  }
}

for my $peer (@peers) {
  my ($job, $name, $call, $is_right) = @$peer;
  if ($mode eq 'check') {
    unlink "$folder/uulib.out";
    $is_right->($call->()) or die "peers.pl: $job by $name: the outputs differ\n";
  } else {
    print join("\t", $job, $name, seconds_of($call)), "\n";
  }
}
