// Process entry of vdprep.
#include "tool/vdprep.h"

int main(int argc, char **argv) { return vdprep_main(argc, reinterpret_cast<text **>(argv)); }
