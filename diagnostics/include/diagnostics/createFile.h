// Making of a log file and of its folders; create_tree itself is exported, see vdreader/logfiles.h.

#pragma once

#include "libn/IFile.h"

// Makes the folders, then opens the file for reading and writing, making it where there is none and
// keeping what it holds.  With `touch` its time of modification becomes the present second.  False
// after a line in the error log: "create_file failed. Invalid param: file_path is null." or
// "Failed to create file 'PATH'.".  Raises what create_tree and the touch raise.
bool create_file(libn::IFile& file, const char* path, bool touch);
