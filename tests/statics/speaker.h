// An object that logs while it is made and while it is destroyed.
#ifndef STDKRO_TESTS_SPEAKER_H
#define STDKRO_TESTS_SPEAKER_H

#include <stdkro/logger.h>

class speaker {
public:
    explicit speaker(const char* name) : name_(name) { logger::print(lv_hint, "%s begins\n", name_); }
    speaker(const speaker&) = delete;
    speaker& operator=(const speaker&) = delete;
    ~speaker() { logger::print(lv_hint, "%s ends\n", name_); }

private:
    const char* name_;
};

#endif
