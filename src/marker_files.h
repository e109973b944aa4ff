// Markers and regions in the files other tools exchange them in: label files
// (tab-separated "start<TAB>end<TAB>name" in seconds, one a line; a marker
// has start = end) and the cue points of a WAV file ("cue " with names and
// region lengths in a LIST "adtl" chunk). Chapters of the other containers go
// through FFmpeg (EncodeOptions::Markers, DecodedAudio::Markers).
#pragma once

#include <string>
#include <vector>

struct TimedMarker
{
    double StartSec = 0.0;
    double EndSec = 0.0;  // == StartSec for a marker
    std::string Name;
    bool operator==(const TimedMarker& Other) const
    {
        return StartSec == Other.StartSec && EndSec == Other.EndSec && Name == Other.Name;
    }
};

// --- Label files ---
// Six decimals, as the best-known open editor writes them: a time on a frame
// of any rate up to 500 kHz reads back as the same frame.
std::string FormatLabels(const std::vector<TimedMarker>& Markers);
// Lines that start with a backslash (frequency ranges) are skipped; a line
// that is not two times and a name is an error naming its line.
bool ParseLabels(const std::string& Text, std::vector<TimedMarker>& Out, std::string& OutError);
bool ReadLabelFile(const std::string& Path, std::vector<TimedMarker>& Out, std::string& OutError);
bool WriteLabelFile(const std::string& Path, const std::vector<TimedMarker>& Markers, std::string& OutError);

// --- WAV cue points ---
// The cue points of a RIFF WAVE file, with their labl names and ltxt
// lengths, by position. A file without them gives none and true; false only
// for a file that cannot be read or is not RIFF WAVE.
bool ReadWavCues(const std::string& Path, std::vector<TimedMarker>& Out, std::string& OutError);
// Appends a "cue " chunk and a LIST "adtl" chunk to the complete RIFF WAVE
// file open on Fd (read and write), at RateHz frames per second, and grows
// the RIFF size to hold them. False, with the file as it was, when it is not
// RIFF WAVE or the chunks would take it past 4 GiB.
bool AppendWavCues(int Fd, int RateHz, const std::vector<TimedMarker>& Markers, std::string& OutError);
