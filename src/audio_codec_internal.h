// The shell's audio encoder on FFmpeg. The container and codec follow the
// path's extension, in any case: .ogg Vorbis, .opus Opus, .mp3 MP3, .flac FLAC
// (24-bit), .wav 32-bit float PCM (the samples exactly, also beyond full
// scale), .m4a AAC. The file is written next to its target under a temporary
// name and renamed only when complete, so a failure never leaves a truncated
// file nor harms the file that was there.
#pragma once

#include <string>
#include <vector>

// Samples are interleaved float, SampleRate frames per second (1 to 768000),
// Channels per frame (1 to 8). BitrateKbps applies to the lossy formats: 0 or
// less means 192, other values are held to 32..320 (Opus to 256 per channel);
// for Vorbis it picks the quality of that nominal rate. A rate or channel
// count that the codec lacks is converted: to the nearest supported rate above,
// and MP3 mixes more than two channels down to stereo. Empty Samples are
// refused, as an empty file of most of these formats does not open again.
// Returns true when the file is written; false with a reason in ErrorMessage
// (when not null) otherwise, with the target as it was.
bool TarvikEncodeFloatAudioFile(const std::string& Path, const std::vector<float>& Samples, int SampleRate,
                                int Channels, int BitrateKbps, std::string* ErrorMessage);
