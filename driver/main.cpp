#include "driver/run.h"

int main(int argc, char** argv) { return zib_main(argc, argv); }
