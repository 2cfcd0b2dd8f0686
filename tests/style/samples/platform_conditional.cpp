// expect: platform-conditional
// expect: platform-conditional
#ifdef _WIN32
#elif defined(__linux__)
#endif
