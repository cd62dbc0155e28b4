/// What dirload and its plug-ins agree upon. Both link the library, and both were built with the same one.
#pragma once

#include <tovutil/tovutstr.h>

struct DirloadAttribute {
    const char *name; ///< without options; capitals and small letters are the same

    /// Brings a value into its normal form, in its own memory. Gives null, or what is wrong with the value.
    ///
    /// Threads    Called by several threads at once, with different values.
    const char *(*normalise)(TovUniString &value);
};

/// A plug-in exports a function of this name and type: its attributes, and behind them one with a null name.
extern "C" using DirloadAttributes = const DirloadAttribute * ();
constexpr const char *c_dirloadAttributes = "dirloadAttributes";
