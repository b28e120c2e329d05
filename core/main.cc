// vimora: the picture viewer.
#include "core/startup.h"

int main(int argc, char** argv) { return VimoraMain(argc, argv); }
