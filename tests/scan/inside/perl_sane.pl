# SPDX-License-Identifier: LGPL-2.1-or-later
# Perl's SANE binding, as gscan2pdf uses it: list, options, a cancelled page, a page from the glass,
# all sheets of the feeder, whose number is the argument. Pages go to page1.pnm and so on.
use strict;
use warnings;
use Image::Sane ':all';

my $block = 32768;
my $page  = 0;

sub numbers_of {
    my ($scanner) = @_;
    my %numbers;
    my $count = $scanner->get_option(0);
    for my $number ( 1 .. $count - 1 ) {
        my $option = $scanner->get_option_descriptor($number);
        $numbers{ $option->{name} } = $number if $option->{type} != SANE_TYPE_GROUP();
    }
    return %numbers;
}

sub check {
    my ( $what, $got, $wanted ) = @_;
    die "$what: $got, not $wanted\n" if $got ne $wanted;
}

# The status of a call that fails.
sub status_of {
    my ($call) = @_;
    eval { $call->(); 1 } and return SANE_STATUS_GOOD();
    die $@ if !ref $@;
    return $@->status + 0;
}

sub check_options {
    my ( $scanner, %numbers ) = @_;
    check( 'options', join( ' ', sort keys %numbers ),
        'br-x br-y media mode preview resolution source tl-x tl-y' );
    my %constraint;
    for my $name ( keys %numbers ) {
        my $option = $scanner->get_option_descriptor( $numbers{$name} );
        $constraint{$name} = $option->{constraint};
    }
    check( 'modes', join( '|', @{ $constraint{mode} } ), '24-bit Color|8-bit Grayscale' );
    check( 'sources', join( '|', @{ $constraint{source} } ), 'Flatbed|Automatic Document Feeder' );
    check( 'resolutions', join( '|', @{ $constraint{resolution} } ), '600|300|150|75' );
    check( 'left', $constraint{'tl-x'}{min}, 0 );
    check( 'right', sprintf( '%.1f', $constraint{'br-x'}{max} ), '215.9' );
    my $info = $scanner->set_option( $numbers{media}, '4 x 6 in' );
    check( 'reload', $info & SANE_INFO_RELOAD_OPTIONS(), SANE_INFO_RELOAD_OPTIONS() );
    check( 'width', sprintf( '%.1f', $scanner->get_option( $numbers{'br-x'} ) ), '101.6' );
    check( 'unknown mode', status_of( sub { $scanner->set_option( $numbers{mode}, 'Gray' ) } ),
        SANE_STATUS_INVAL() );
    return;
}

sub read_page {
    my ($scanner) = @_;
    my $parameters = $scanner->get_parameters;
    my $data       = '';
    my $end        = status_of(
        sub {
            while (1) {
                my ( $bytes, $length ) = $scanner->read($block);
                $data .= substr $bytes, 0, $length;
            }
        }
    );
    check( 'end', $end, SANE_STATUS_EOF() );
    check( 'size', length $data, $parameters->{bytes_per_line} * $parameters->{lines} );
    $page++;
    open my $file, '>:raw', "page$page.pnm" or die "page$page.pnm: $!\n";
    printf {$file} "%s\n%d %d\n255\n", $parameters->{format} == SANE_FRAME_RGB() ? 'P6' : 'P5',
      $parameters->{pixels_per_line}, $parameters->{lines};
    print {$file} $data;
    close $file or die "page$page.pnm: $!\n";
    return;
}

sub scan_all {
    my ($name) = @_;
    my $scanner = Image::Sane::Device->open($name);
    my %numbers = numbers_of($scanner);
    check_options( $scanner, %numbers );
    $scanner->set_option( $numbers{resolution}, 150 );

    $scanner->start;
    $scanner->read(1000);
    $scanner->cancel;

    $scanner->start;
    read_page($scanner);
    $scanner->cancel;

    $scanner->set_option( $numbers{mode},   '8-bit Grayscale' );
    $scanner->set_option( $numbers{source}, 'Automatic Document Feeder' );
    my $sheets = 0;
    my $end    = status_of(
        sub {
            while (1) {
                $scanner->start;
                read_page($scanner);
                $sheets++;
            }
        }
    );
    check( 'behind the last sheet', $end, SANE_STATUS_NO_DOCS() );
    check( 'sheets', $sheets, $ARGV[0] );
    $scanner->cancel;
    return;
}

my @devices = Image::Sane->get_devices;
check( 'devices', scalar @devices, 1 );
check( 'type', $devices[0]{type}, 'Scanner' );
scan_all( $devices[0]{name} );
