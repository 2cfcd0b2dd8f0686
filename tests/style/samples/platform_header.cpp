// expect: platform-header
// expect: platform-header
// expect: platform-header
#include <sys/stat.h>
#include <unistd.h>
#include <windows.h>
