// The shell's audio encoder on FFmpeg. The container and codec follow the
// path's extension: .ogg Vorbis, .opus Opus, .mp3 MP3, .flac FLAC, .wav PCM,
// .m4a AAC. BitrateKbps applies to the lossy formats. The file is written next
// to its target under a temporary name and renamed only when complete, so a
// failure never leaves a truncated file nor harms the file that was there.
#pragma once

#include <string>
#include <vector>

// Samples are interleaved float, SampleRate frames per second, Channels per
// frame. Returns true when the file is written; false with a reason in
// ErrorMessage (when not null) otherwise.
bool TarvikEncodeFloatAudioFile(const std::string& Path, const std::vector<float>& Samples, int SampleRate,
                                int Channels, int BitrateKbps, std::string* ErrorMessage);
