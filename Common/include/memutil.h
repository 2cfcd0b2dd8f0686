// Definitions of the traced base class, for the instances that the library itself uses.

#pragma once

#include "libn/dwmini.h"
#include "vdreader/memutil.hpp"

namespace memutil {

inline constexpr char kMemutilSource[] = "Common/include/memutil";

template <int N>
Redefine_NewDelete_<N>& Redefine_NewDelete_<N>::operator=(const Redefine_NewDelete_&) {
    return *this;
}
template <int N>
Redefine_NewDelete_<N>& Redefine_NewDelete_<N>::operator=(Redefine_NewDelete_&&) noexcept {
    return *this;
}

template <int N>
void* Redefine_NewDelete_<N>::operator new(std::size_t size) {
    return dwminiAlloc(size, kMemutilSource, N, true);
}
template <int N>
void* Redefine_NewDelete_<N>::operator new[](std::size_t size) {
    return dwminiAlloc(size, kMemutilSource, N, true);
}
template <int N>
void Redefine_NewDelete_<N>::operator delete(void* block) {
    dwminiFree(&block);
}
template <int N>
void Redefine_NewDelete_<N>::operator delete[](void* block) {
    dwminiFree(&block);
}

template <int N>
void* Redefine_NewDelete_<N>::operator new(std::size_t, void* place) {
    return place;
}
template <int N>
void* Redefine_NewDelete_<N>::operator new[](std::size_t, void* place) {
    return place;
}
template <int N>
void Redefine_NewDelete_<N>::operator delete(void*, void*) {}
template <int N>
void Redefine_NewDelete_<N>::operator delete[](void*, void*) {}

} // namespace memutil
