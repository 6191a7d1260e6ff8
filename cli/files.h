// The few file-system steps the program takes itself; everything inside
// an archive is the engine's. Platform-specific (files_posix.cpp): the
// POSIX side keeps std::filesystem out of the program, whose locale set-up
// and pages were a tenth of a short run.
#pragma once

#include <string>

namespace kzcli {

// Whether anything exists at the path (command-line bytes).
bool PathExists(const std::string& path);
// Creates the directory and any missing parents; false with the system's
// reason when it cannot.
bool CreateDirectories(const std::string& path, std::string* why);
// The archive path as a host hands it to the engine. Windows hosts pass a
// full path: the engine tests for the file through the "\\?\" form, which
// takes no relative path. Elsewhere the path as given.
std::wstring EngineArchivePath(const std::string& path);
// The base directory a host hands over with the files to add: on Windows
// the current directory, so that relative names reach the engine as full
// paths (it reads a source's attributes through the "\\?\" form too) and
// are stored as given. Elsewhere none (empty).
std::wstring EngineSourceBase();

}  // namespace kzcli
