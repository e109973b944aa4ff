// Writes the manual page glwaveedit(1) at build time, from the tables --help
// is written from. Needs neither a display nor a sound device.
//
// usage: glwe_manpage VERSION DATE OUT

#include <cstdio>

#include "options.h"

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::fputs("usage: glwe_manpage VERSION DATE OUT\n", stderr);
        return 2;
    }
    const std::string page = ManPageText(argv[1], argv[2]);
    std::FILE* file = std::fopen(argv[3], "w");
    const bool bWritten = file && std::fwrite(page.data(), 1, page.size(), file) == page.size();
    if (!file || std::fclose(file) != 0 || !bWritten)
    {
        std::fprintf(stderr, "glwe_manpage: cannot write %s\n", argv[3]);
        std::remove(argv[3]);
        return 1;
    }
    return 0;
}
