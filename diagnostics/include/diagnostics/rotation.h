// Rotation of a log file when it is opened: a file that was made on an earlier day moves to NAME.1,
// its older copies up one number.
//
// Runs under the lock of the log's kind.  Nothing keeps two processes apart that rotate one file,
// but a rename that fails; a copy can be lost.

#pragma once

#include <cstdint>
#include <string>

#include "logs/EVENTS.h"

// Loads the settings and rotates the file if they ask for it and it is older than today.  True if
// it was rotated.  A file that is not there, or whose age cannot be told, stays.  Raises what
// rotate_file and libn::Ini raise.
bool rotateOnOpen(EVENTS& entry, const char* iniPath);

// Fills isRotate and rotateDepth from the ini file: [logfile] rotate=NAME,DEPTH, one for each log,
// or, where there is none at all, [files] logdepth=DEPTH for every log.  Depths are cut to 16 bits.
// Null or empty: no rotation.
void loadRotateSettings(EVENTS& entry, const char* iniPath);

// Takes one value of `rotate` over if it names the entry's file, whatever its folder.
void parseRotateOption(const std::string& value, EVENTS& entry);

// Moves NAME.1 to NAME.2 and so on up to `depth`, then the file itself to NAME.1.  Depth 0 deletes
// the file; a depth of 1 and a negative one keep it alone.  Names are cut at 260 characters.
void rotate_file(const char* name, std::int32_t depth);

// Five tries, half a second apart, with a line in the error log for each failure but the last,
// which raises std::filesystem::filesystem_error.  A file to be deleted that is not there is a
// success.
void rename_with_retry(const std::string& from, const std::string& to);
void delete_with_retry(const std::string& path);
