// The clip the program opens when it is given no file: a few seconds of
// chords, so that a newcomer sees and hears something at once.
#pragma once

#include <vector>

// Four seconds of A major then D major at SampleRate, interleaved stereo.
std::vector<float> SynthesiseDemoChords(int SampleRate);
