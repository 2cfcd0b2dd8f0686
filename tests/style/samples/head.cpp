#include <string>
// expect: head
