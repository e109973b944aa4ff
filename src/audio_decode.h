// The program's decoder: one local audio file to interleaved float at 48000 Hz,
// 2 channels, sample for sample what the editor's own import gives (both go
// through the steps of audio_decode_core.h) followed by the resampler's tail
// (see TailFrames), but cancellable, with progress, bounded in size and in
// the rate it accepts, on both cores, and reading nothing but the file the
// user chose. Meant to run on a worker thread of the host; the result goes to
// GLWaveEdit::AdoptDecodedDocument.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "audio_decode_core.h"
#include "marker_files.h"

struct DecodedAudio
{
    // Interleaved float, 48000 Hz, 2 channels. Laid out once, on huge pages.
    std::vector<float> Frames;
    // The decoder's and the container's long names ("MP3 (MPEG audio layer 3)"),
    // or their short names where FFmpeg has no long one.
    std::string CodecName;
    std::string ContainerName;
    // As the file has them, before the conversion.
    int SourceSampleRate = 0;
    int SourceChannels = 0;
    std::string SourceChannelLayout;  // "stereo", "mono", "5.1", "3 channels"
    double SourceDurationSec = 0.0;   // what the container says; 0 when it says nothing
    // What saving needs to give the file back as it was: short names
    // ("pcm_s16le", "flac", "mp3"; "wav", "flac", "ogg"), the decoded sample
    // format ("s16", "s32", "fltp"), the bits per sample (16, 24, 32; 0 where
    // the codec has no such depth, as lossy ones), and the average bitrate of
    // a lossy stream (0 when unknown).
    std::string SourceCodec;
    std::string SourceContainer;
    std::string SourceSampleFormat;
    int SourceBits = 0;
    bool bSourceFloat = false;
    bool bSourceLossy = false;
    int SourceBitrateKbps = 0;
    // Samples per channel at the source's rate that went into the resampler.
    int64_t SourceFrames = 0;
    // The last frames of Frames: what the resampler still held when the
    // stream ended. The editor's import leaves them out (its frames are
    // Frames without these); with them, a file saved back at its own rate
    // has its own length. 0 when the rate is 48000 Hz.
    size_t TailFrames = 0;
    // The frame from which a second thread decoded the rest, at once with the
    // first part; 0 when one decoding gave all of it.
    size_t SecondHalfFromFrame = 0;
    // Container and stream tags, keys lower-cased: title, artist, album, track,
    // date, comment and whatever else the file carries. The container's win.
    std::map<std::string, std::string> Tags;
    // The chapters FFmpeg reports for the file, by time: a chapter that ends
    // where it starts is a marker. (A WAV file's cue points are not among
    // them: ReadWavCues in marker_files.h reads those.)
    std::vector<TimedMarker> Markers;
};

// 6 GiB of float is 4.7 hours at 48000 Hz stereo: beyond any file the editor
// is meant for, below what fills this kind of machine.
constexpr uint64_t kDefaultMaxDecodedBytes = uint64_t(6) << 30;

struct DecodeControl
{
    // Set from any thread: decoding stops soon after and fails with
    // "Opening cancelled.".
    const std::atomic<bool>* pCancel = nullptr;
    // Written by the decoding: 0..1, the share of the file read so far. Ends
    // at 1 on success.
    std::atomic<double>* pProgress = nullptr;
    // Decoded output larger than this fails; a file that expands without end
    // (a rate of 1 Hz, say) stops here instead of filling memory.
    uint64_t MaxDecodedBytes = kDefaultMaxDecodedBytes;
    // 1: decoding and resampling on the calling thread. 2 or more: a long
    // file's two halves each on a thread (see HalvesFromSec), or else the
    // resampling on a second thread, fed through a short queue of decoded
    // frames. Either way one more thread faults the output's pages in ahead
    // of the writes.
    int Threads = 2;
    // With two threads, a file whose container says it lasts at least this
    // long is decoded as two halves at once, one per thread, and joined
    // where the second half's frames are shown to be those of a decoding
    // from the start. Shorter files, or where that cannot be shown, are
    // decoded and resampled as a pipeline.
    double HalvesFromSec = 60.0;
    // When not null: written at the end, the step of the editor's import at
    // which the decoding failed (Step::None on success), or Step::OwnLimit
    // for a limit of this decoder's own that the import lacks.
    AudioDecodeCore::Step* pFailedStep = nullptr;
};

// FFmpeg sizes some allocations by what a file says: a WAV's INFO tags made a
// 1.6 KB file ask for 1.9 GB. This caps any one FFmpeg allocation at 64 MiB,
// far above the packets, frames and cover pictures of audio. FFmpeg's limit
// is process-wide, so the host calls this once, before decoding.
void CapFfmpegAllocations();

// Decodes the best audio stream of the local file Path (a plain path, never a
// URL or protocol) into Out. As in the editor's import, a packet the decoder
// refuses and a frame in another shape than the first (channels, sample
// format) are passed over, and a read error ends the audio there. Returns
// false with a message for the user in ErrorMessage (when not null) if the
// file is missing, not a regular file, not audio, states a sample rate above
// 100 MHz (which the import would convert, slowly), decodes to nothing,
// exceeds the size bound, or opening is cancelled; Out is then empty.
bool DecodeAudioFile(const std::string& Path, const DecodeControl& Control, DecodedAudio& Out,
                     std::string* ErrorMessage);
