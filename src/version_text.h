// Version numbers in texts.
#ifndef STDKRO_SRC_VERSION_TEXT_H
#define STDKRO_SRC_VERSION_TEXT_H

/// Reads "major.minor.micro" as far as it goes: `parts` tells how many numbers
/// there were, `ver` packs them. Each may have white space and a sign before it and
/// wraps at 32 bits. Returns the place behind the last digit read.
const char* read_version(const char* s, int& ver, int& parts);

#endif
