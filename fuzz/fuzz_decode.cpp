// libFuzzer target: any bytes as an audio file through the program's decoder,
// which must agree with itself in halves and with the editor's import.
#include "fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size)
{
    GLWaveEditFuzz::DecodeOnce(Data, Size);
    return 0;
}
