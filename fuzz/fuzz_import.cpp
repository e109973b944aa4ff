// libFuzzer target: any bytes as an audio file opened by the editor.
#include "fuzz_harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size)
{
    GLWaveEditFuzz::ImportOnce(Data, Size);
    return 0;
}
