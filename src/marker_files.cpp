// Label files and WAV cue points (see marker_files.h).
//
// Sections: Label files, RIFF helpers, Reading cues, Writing cues.

#include "marker_files.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>

#include <sys/stat.h>

// --- Label files ---

std::string FormatLabels(const std::vector<TimedMarker>& Markers)
{
    std::string text;
    char times[96];
    for (const TimedMarker& m : Markers)
    {
        std::snprintf(times, sizeof(times), "%.6f\t%.6f\t", m.StartSec, m.EndSec);
        text += times + m.Name + "\n";
    }
    return text;
}

namespace
{
// A time in seconds as the whole field, whatever the locale.
bool ParseSeconds(const std::string& Field, double& Out)
{
    const char* first = Field.data();
    const char* last = first + Field.size();
    const auto [end, error] = std::from_chars(first, last, Out);
    return error == std::errc() && end == last && std::isfinite(Out) && Out >= 0.0;
}
}  // namespace

bool ParseLabels(const std::string& Text, std::vector<TimedMarker>& Out, std::string& OutError)
{
    Out.clear();
    std::istringstream in(Text);
    std::string line;
    for (int number = 1; std::getline(in, line); ++number)
    {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == '\\')
            continue;
        const size_t firstTab = line.find('\t');
        const size_t secondTab = firstTab == std::string::npos ? firstTab : line.find('\t', firstTab + 1);
        TimedMarker m;
        if (firstTab == std::string::npos ||
            !ParseSeconds(line.substr(0, firstTab), m.StartSec) ||
            !ParseSeconds(line.substr(firstTab + 1, secondTab == std::string::npos ? std::string::npos
                                                                                  : secondTab - firstTab - 1),
                          m.EndSec) ||
            m.EndSec < m.StartSec)
        {
            OutError = "Line " + std::to_string(number) + " is not a label (start, end and name, tab-separated).";
            return false;
        }
        if (secondTab != std::string::npos)
            m.Name = line.substr(secondTab + 1);
        Out.push_back(std::move(m));
    }
    return true;
}

bool ReadLabelFile(const std::string& Path, std::vector<TimedMarker>& Out, std::string& OutError)
{
    std::ifstream in(Path, std::ios::binary);
    if (!in)
    {
        OutError = "Cannot read " + Path + ": " + std::strerror(errno);
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (!ParseLabels(text.str(), Out, OutError))
    {
        OutError = Path + ": " + OutError;
        return false;
    }
    return true;
}

bool WriteLabelFile(const std::string& Path, const std::vector<TimedMarker>& Markers, std::string& OutError)
{
    std::ofstream out(Path, std::ios::binary | std::ios::trunc);
    out << FormatLabels(Markers);
    out.close();
    if (!out)
    {
        OutError = "Cannot write " + Path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

// --- RIFF helpers ---
// RIFF is little-endian; chunks are an id, a 32-bit size and the data,
// padded to an even length by a byte the size does not count.

namespace
{
uint32_t Le32(const unsigned char* P)
{
    return P[0] | (P[1] << 8) | (P[2] << 16) | (static_cast<uint32_t>(P[3]) << 24);
}

void PutLe16(std::string& Out, uint16_t V)
{
    Out += static_cast<char>(V & 0xff);
    Out += static_cast<char>(V >> 8);
}

void PutLe32(std::string& Out, uint32_t V)
{
    for (int shift = 0; shift < 32; shift += 8)
        Out += static_cast<char>((V >> shift) & 0xff);
}

void PutChunk(std::string& Out, const char* Id, const std::string& Data)
{
    Out.append(Id, 4);
    PutLe32(Out, static_cast<uint32_t>(Data.size()));
    Out += Data;
    if (Data.size() % 2)
        Out += '\0';
}

// A zero-terminated text at most Size bytes long.
std::string TextOf(const unsigned char* P, size_t Size)
{
    const char* text = reinterpret_cast<const char*>(P);
    return std::string(text, strnlen(text, Size));
}
}  // namespace

// --- Reading cues ---

bool ReadWavCues(const std::string& Path, std::vector<TimedMarker>& Out, std::string& OutError)
{
    Out.clear();
    std::ifstream in(Path, std::ios::binary);
    unsigned char head[12];
    if (!in.read(reinterpret_cast<char*>(head), sizeof(head)))
    {
        OutError = "Cannot read " + Path;
        return false;
    }
    if (std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "WAVE", 4) != 0)
    {
        OutError = Path + " is not a RIFF WAVE file.";
        return false;
    }
    uint32_t rate = 0;
    std::map<uint32_t, uint32_t> offsets;       // cue id -> sample frame
    std::map<uint32_t, std::string> names;      // cue id -> labl
    std::map<uint32_t, uint32_t> lengths;       // cue id -> ltxt length in frames
    // Chunks worth reading are small; the audio is skipped over.
    constexpr uint32_t kMaxReadChunk = 16u << 20;
    unsigned char chunkHead[8];
    while (in.read(reinterpret_cast<char*>(chunkHead), sizeof(chunkHead)))
    {
        const uint32_t size = Le32(chunkHead + 4);
        const bool wanted = std::memcmp(chunkHead, "fmt ", 4) == 0 || std::memcmp(chunkHead, "cue ", 4) == 0 ||
                            std::memcmp(chunkHead, "LIST", 4) == 0;
        if (!wanted || size > kMaxReadChunk)
        {
            in.seekg(static_cast<std::streamoff>(size) + (size % 2), std::ios::cur);
            continue;
        }
        std::vector<unsigned char> data(size);
        if (!in.read(reinterpret_cast<char*>(data.data()), size))
            break;  // a chunk cut short ends the walk
        if (size % 2)
            in.ignore(1);
        if (std::memcmp(chunkHead, "fmt ", 4) == 0 && size >= 8)
            rate = Le32(data.data() + 4);
        else if (std::memcmp(chunkHead, "cue ", 4) == 0 && size >= 4)
        {
            const uint32_t count = std::min<uint32_t>(Le32(data.data()), (size - 4) / 24);
            for (uint32_t i = 0; i < count; ++i)
            {
                const unsigned char* point = data.data() + 4 + 24 * i;
                offsets[Le32(point)] = Le32(point + 20);  // dwName ... dwSampleOffset
            }
        }
        else if (std::memcmp(chunkHead, "LIST", 4) == 0 && size >= 4 && std::memcmp(data.data(), "adtl", 4) == 0)
        {
            for (size_t at = 4; at + 8 <= size;)
            {
                const unsigned char* sub = data.data() + at;
                const uint32_t subSize = std::min<uint32_t>(Le32(sub + 4), static_cast<uint32_t>(size - at - 8));
                if (std::memcmp(sub, "labl", 4) == 0 && subSize >= 4)
                    names[Le32(sub + 8)] = TextOf(sub + 12, subSize - 4);
                else if (std::memcmp(sub, "ltxt", 4) == 0 && subSize >= 8)
                    lengths[Le32(sub + 8)] = Le32(sub + 12);
                at += 8 + subSize + (subSize % 2);
            }
        }
    }
    if (rate == 0)
    {
        OutError = Path + " has no format chunk.";
        return false;
    }
    for (const auto& [id, offset] : offsets)
    {
        TimedMarker m;
        m.StartSec = static_cast<double>(offset) / rate;
        const auto length = lengths.find(id);
        m.EndSec = static_cast<double>(offset + (length != lengths.end() ? length->second : 0)) / rate;
        const auto name = names.find(id);
        m.Name = name != names.end() ? name->second : "Cue " + std::to_string(id);
        Out.push_back(std::move(m));
    }
    std::stable_sort(Out.begin(), Out.end(),
                     [](const TimedMarker& A, const TimedMarker& B) { return A.StartSec < B.StartSec; });
    return true;
}

// --- Writing cues ---

bool AppendWavCues(int Fd, int RateHz, const std::vector<TimedMarker>& Markers, std::string& OutError)
{
    unsigned char head[12];
    struct stat info = {};
    if (pread(Fd, head, sizeof(head), 0) != static_cast<ssize_t>(sizeof(head)) || fstat(Fd, &info) != 0 ||
        std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "WAVE", 4) != 0 || RateHz <= 0)
    {
        OutError = "The cue points need a RIFF WAVE file.";
        return false;
    }
    const auto frameOf = [RateHz](double Sec) { return static_cast<uint32_t>(std::llround(Sec * RateHz)); };
    std::string cue;
    std::string adtl = "adtl";
    PutLe32(cue, static_cast<uint32_t>(Markers.size()));
    for (size_t i = 0; i < Markers.size(); ++i)
    {
        const TimedMarker& m = Markers[i];
        const uint32_t id = static_cast<uint32_t>(i + 1);
        const uint32_t start = frameOf(m.StartSec);
        PutLe32(cue, id);
        PutLe32(cue, start);  // dwPosition: the play order position
        cue.append("data", 4);
        PutLe32(cue, 0);      // dwChunkStart
        PutLe32(cue, 0);      // dwBlockStart
        PutLe32(cue, start);  // dwSampleOffset
        std::string label;
        PutLe32(label, id);
        label += m.Name + '\0';
        PutChunk(adtl, "labl", label);
        if (m.EndSec > m.StartSec)
        {
            std::string text;
            PutLe32(text, id);
            PutLe32(text, frameOf(m.EndSec) - start);  // dwSampleLength
            text.append("rgn ", 4);                    // dwPurposeID
            for (int i16 = 0; i16 < 4; ++i16)          // country, language, dialect, code page
                PutLe16(text, 0);
            PutChunk(adtl, "ltxt", text);
        }
    }
    std::string chunks;
    if (info.st_size % 2)
        chunks += '\0';  // the last chunk's pad byte, if its writer left it out
    PutChunk(chunks, "cue ", cue);
    PutChunk(chunks, "LIST", adtl);
    const uint64_t newSize = static_cast<uint64_t>(info.st_size) + chunks.size();
    if (newSize - 8 > UINT32_MAX)
    {
        OutError = "The file is too long for cue points.";
        return false;
    }
    unsigned char riffSize[4];
    for (int i = 0; i < 4; ++i)
        riffSize[i] = static_cast<unsigned char>(((newSize - 8) >> (8 * i)) & 0xff);
    if (pwrite(Fd, chunks.data(), chunks.size(), info.st_size) != static_cast<ssize_t>(chunks.size()) ||
        pwrite(Fd, riffSize, 4, 4) != 4)
    {
        OutError = std::string("Cannot write the cue points: ") + std::strerror(errno);
        return false;
    }
    return true;
}
