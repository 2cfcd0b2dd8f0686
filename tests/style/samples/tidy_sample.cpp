// A mistake that clang-tidy must see, and a form that clang-format must refuse.
#include <string>
#include <utility>

int     sizeOfMoved(std::string text) {
    std::string other = std::move(text);
    return static_cast<int>(text.size() + other.size());
}
