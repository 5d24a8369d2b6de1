// The command "orvo".
#include "driver/verbs.h"

int main(int argc, char **argv) { return orvo::driver::run(argc, argv); }
