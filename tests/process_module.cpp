// The module that the tests load.
#include <stdkro/config.h>

extern "C" {
KRO_API int process_module_add(int a, int b);
KRO_API extern int process_module_counter;
}

int process_module_counter = 41;

int process_module_add(int a, int b) { return a + b; }
