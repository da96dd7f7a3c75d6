#include "cli/program.h"

int main(int argc, char** argv) { return sds_cli::run_program(argc, argv); }
