#include "words.h"

const bool has_slash_options = true;
