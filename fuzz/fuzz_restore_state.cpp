// libFuzzer target: any bytes as the editor's saved window state.
#include "fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size)
{
    GLWaveEditFuzz::RestoreStateOnce(Data, Size);
    return 0;
}
