// The batch mode: the editor driven through its public operations without a
// window, for users who trim or level files from a terminal and for the
// checks. The same open and save as the window's, so their figures are the
// program's own.
#pragma once

#include <string>

#include "options.h"

class GLWaveEdit;
class Jobs;
class Session;
struct OpenResult;

// A finished open becomes a tab, with its source, format and tags noted.
void AdoptOpened(GLWaveEdit& Editor, Session& Docs, OpenResult& Opened);

// Opens Path through the program's background decoder and waits for it,
// showing progress on stderr when that is a terminal. False with the reason.
bool OpenAndWait(GLWaveEdit& Editor, Jobs& Work, Session& Docs, const std::string& Path, std::string& OutError);

// Runs the selection, edit and save steps on the active document, in order.
// Messages go to stderr; false at the first step that fails.
bool RunBatchSteps(GLWaveEdit& Editor, Jobs& Work, Session& Docs, const Options& Opts);

// The whole batch mode: open, --info or the steps. The process's exit status.
int RunBatch(const Options& Opts);
