// expect: banned-word
// expect: banned-word
// expect: banned-word
#include <iostream>

void leave(std::thread worker, int* place) {
    worker.detach();
    place = NULL;
    std::cout << "gone" << std::endl;
}
