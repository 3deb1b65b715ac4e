#include "driver/run.h"

int zib_main(int, char**) { return 0; }
