// One fuzz input through the editor, shared by the libFuzzer targets and the
// test that replays the inputs kept in tests/fuzz_regressions. A crash, an
// sanitizer report or an abort from a broken promise is the finding.
#pragma once

#include <cstddef>
#include <cstdint>

class GLWaveEdit;

namespace GLWaveEditFuzz
{
// What every pass promises for a finite state: the view clamped as ClampView
// has it and, with bSelection, a selection within the document (a host that
// writes DurationSec itself may leave one beyond). Aborts, naming Where,
// where they do not hold; false where the state was not finite enough to check.
bool CheckPromises(const GLWaveEdit& Editor, const char* Where, bool bSelection = true);

// The bytes as a file opened through SetExternalPeakWaveform (the editor's
// own decode), then a few passes and queries over whatever it made.
void ImportOnce(const uint8_t* Data, size_t Size);

// The bytes as a file through the program's decoder, on one thread and in
// halves (forced on any file that says how long it is), and through the
// editor's import; aborts unless the program's two give the same outcome,
// message and samples, and the import fails at the same step or gives the
// same frames (less the resampler's tail, which it leaves out).
void DecodeOnce(const uint8_t* Data, size_t Size);

// The bytes parsed as JSON (unparsable input is skipped) and restored through
// ApplyExtraState, then a few editor passes; aborts if a pass leaves a finite
// view outside the clamp.
void RestoreStateOnce(const uint8_t* Data, size_t Size);
}  // namespace GLWaveEditFuzz
