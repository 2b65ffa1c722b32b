// A module whose statics log, to be loaded by the program.
#include "speaker.h"

namespace {

speaker in_module("module");

} // namespace
