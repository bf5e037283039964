// The one place where the loader's entry points are compiled in.
#define VOLK_IMPLEMENTATION
#include <volk.h>
