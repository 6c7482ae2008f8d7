#pragma once
// How Kestro and the image-source service (tools/kestro-imagesource) talk on
// the session bus. The service owns a well-known name and offers one object
// with one interface; its methods carry the names of the capture
// application's automation interface.
//
// Pictures: GetRgbImage(i nWidth, i nHeight, i nDepth) answers
// (i width, i height, h pixels): a file descriptor of a shared-memory file
// holding width x height 32-bit pixels, rows top to bottom without padding,
// each pixel's first three bytes red, green and blue and its fourth unused.
// The service seals the file against shrinking and writing, so a reader may
// map it safely. The three arguments are hints that the service may ignore:
// width and height are taken from the answer.

namespace kestro::imagesource {

constexpr char kServiceName[] = "org.kestro.ImageSource1";
constexpr char kObjectPath[] = "/org/kestro/ImageSource1";
constexpr char kInterfaceName[] = "org.kestro.ImageSource1";

// Errors the service answers with.
constexpr char kErrorNotSupported[] = "org.kestro.ImageSource1.Error.NotSupported";
constexpr char kErrorFailed[] = "org.kestro.ImageSource1.Error.Failed";

// Command(nCommand, lParam) code that readies the streaming sensor for a
// capture (starts streaming when stopped or paused).
constexpr int kCommandPrepareCapture = 160;

// The program Kestro starts when the name is not on the bus and the bus
// cannot activate it; KESTRO_IMAGESOURCE_PROGRAM names another.
constexpr char kProgramName[] = "kestro-imagesource";
constexpr char kProgramVariable[] = "KESTRO_IMAGESOURCE_PROGRAM";

} // namespace kestro::imagesource
