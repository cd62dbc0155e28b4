/// Work on file paths as text, and the question whether a path names a file.
///
/// Units      Paths are bytes, as the file system takes them. Slash and backslash separate on every
///            platform. Nothing is normalised.
/// Errors     None but those of TovString.
/// Threads    Any thread.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovstring.h>

class TOV_EXPORT TovOsPath {
public:
    TovOsPath() = delete;

    /// What follows the last separator; the whole path if there is none.
    static TovString baseName(const TovString &path);

    /// All up to the last separator, with it; empty if there is none. pathName(p) + baseName(p) is p.
    static TovString pathName(const TovString &path);

    /// Whether the path names a file: whether the S_IFREG bit of its mode is set. That is one bit of the file
    /// type, which regular files have and sockets, too. False when the path can't be asked for; the trace
    /// tells why, at its error level unless there just is no such file.
    static bool isFile(const TovString &path);
};
