// The FFmpeg steps that the editor's import (glwaveedit.cpp) and the
// program's decoder (audio_decode.h) share, so that the two give the same
// frames from the same file: opening the input and its best audio stream's
// decoder, setting up the resampler, and converting one decoded frame. Each
// caller owns its FFmpeg objects and releases them in its own order, and says
// failures in its own words: a step here reports which step failed and
// FFmpeg's code, never a message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVDictionary;
struct AVFormatContext;
struct AVFrame;
struct SwrContext;

namespace AudioDecodeCore
{
// The steps of a decoding that can fail, in the order they are taken.
enum class Step
{
    None,
    OpenInput,         // avformat_open_input
    ReadStreamInfo,    // avformat_find_stream_info
    FindStream,        // av_find_best_stream found no audio
    FindDecoder,       // FFmpeg has no decoder for the stream's codec
    AllocateDecoder,   // avcodec_alloc_context3
    OpenDecoder,       // avcodec_parameters_to_context, avcodec_open2
    SetUpResampler,    // swr_alloc_set_opts2, swr_init
    AllocateBuffers,   // the packet and frame(s)
    Resample,          // swr_convert during the decoding
    NothingDecoded,    // the stream ended without a frame
    // A bound of the caller's own that the import does not have: a size or
    // rate limit, a cancel, a file that is not a regular one, a nested open.
    OwnLimit,
};

// Opens Url into *Format (which may come allocated, with the caller's I/O
// and callbacks; FFmpeg frees it if the open fails), reads its stream
// information, takes the best audio stream and opens a decoder for it into
// *Codec. Returns Step::None, or the step that failed with FFmpeg's code in
// OutCode (0 where FFmpeg gave none).
Step OpenStream(AVFormatContext** Format, const char* Url, AVDictionary** Options, AVCodecContext** Codec,
                int& OutStreamIndex, int& OutCode);

// The output's shape, and the shape of input frames the resampler was set up
// for.
struct Conversion
{
    SwrContext* Swr = nullptr;  // the caller's, released by the caller
    int OutRate = 0;
    int OutChannels = 0;
    int InputFormat = -1;
    int InputChannels = 0;

    // Whether a decoded frame has the shape the resampler reads. A frame in
    // another (an MP3 that turns from stereo to mono midway) would have it
    // read planes that are not there: it is passed over like a damaged
    // stretch. A change of rate alone goes through at the ratio set up.
    bool Takes(const AVFrame& Frame) const;

    // Output frames that Samples more input at CodecRate (the decoder's rate
    // as the frame comes out) can give with what the resampler holds: at
    // least 1.
    int64_t RoomFor(int CodecRate, int Samples) const;

    // The frame's samples from FromSample on, into Out with room for Room
    // interleaved frames. Returns the frames made, or FFmpeg's negative code.
    int Convert(const AVFrame& Frame, int FromSample, float* Out, int Room);

    // What the resampler still holds at the end of the stream: Room for
    // TailRoom() frames, or a negative code.
    int TailRoom() const;
    int Drain(float* Out, int Room);

private:
    std::vector<const uint8_t*> Planes;  // a frame's planes past FromSample
};

// Sets up *Swr for the decoder's format, rate and layout (the default layout
// of OutChannels where the decoder states no channels) to interleaved float
// at OutRate, OutChannels; any rate the resampler accepts is taken. Returns
// 0, or FFmpeg's negative code with *Swr left for the caller to free.
int SetUpConversion(SwrContext** Swr, const AVCodecContext& Codec, int OutRate, int OutChannels,
                    Conversion& Out);
}  // namespace AudioDecodeCore

// The editor's import itself, defined beside it in glwaveedit.cpp, for the
// check that the program's decoder agrees with it: its frames and message for
// a file, and the message it gives where a step fails.
namespace EditorImport
{
bool Decode(const std::string& Path, std::vector<float>& OutFrames, std::string* ErrorMessage);
const char* FailureMessage(AudioDecodeCore::Step FailedStep);
}  // namespace EditorImport
