/* A codec library that reports another version (preloaded by a test). */
#include <string.h>

void imkVersion(char* buf) { strcpy(buf, "2.89"); }
