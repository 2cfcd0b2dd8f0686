// Stands in for a service without SendInfo.

#ifdef _WIN32
extern "C" __declspec(dllexport) int anotherFunction() {
#else
extern "C" __attribute__((visibility("default"))) int anotherFunction() {
#endif
    return 7;
}
