// The copy of a slot's values, in the widest form that the processor has.
//
// A loop with a decision for each parameter costs four times the plain copy of the slot when most
// parameters are set.  Stores under a mask decide nothing and leave the rest of the buffer alone.

#include "CurData/lastValues.h"

#include <cstring>

#if defined(__x86_64__)
#  include <immintrin.h>
#endif

namespace {

constexpr unsigned kWord = 64;

std::uint64_t common(const ParamSet& a, const ParamSet& b, unsigned word) {
    return a.words[word] & b.words[word];
}

// One value after the other, for any processor.
void copyOneByOne(const char* values, const ParamSet& mask, const ValueForm& form,
                  sLastDynParams& out) {
    char* const doublesOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, doubles);
    char* const longsOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, longs);
    for (unsigned word = 0; word < 2; ++word) {
        for (std::uint64_t set = common(mask, form.doubles, word); set != 0; set &= set - 1) {
            const std::size_t i = word * kWord + static_cast<unsigned>(__builtin_ctzll(set));
            std::memcpy(doublesOut + i * 8, values + i * 8, 8);
        }
        for (std::uint64_t set = common(mask, form.longs, word); set != 0; set &= set - 1) {
            const std::size_t i = word * kWord + static_cast<unsigned>(__builtin_ctzll(set));
            std::memcpy(longsOut + i * 4, values + i * 8, 4);
        }
    }
}

#if defined(__x86_64__)

// Sixteen values at a time.
__attribute__((target("avx512f,avx512bw,avx512dq"))) void copyBySixteen(const char* values,
                                                                        const ParamSet& mask,
                                                                        const ValueForm& form,
                                                                        sLastDynParams& out) {
    const __m512i lowHalves =
        _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
    char* doublesOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, doubles);
    char* longsOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, longs);
    for (unsigned word = 0; word * kWord < form.limit; ++word) {
        __mmask64 doubleSet = _cvtu64_mask64(common(mask, form.doubles, word));
        __mmask64 longSet = _cvtu64_mask64(common(mask, form.longs, word));
#  pragma GCC unroll 4
        for (unsigned i = 0; i < kWord; i += 16) {
            const __m512i first = _mm512_loadu_si512(values);
            const __m512i second = _mm512_loadu_si512(values + 64);
            _mm512_mask_storeu_epi64(doublesOut, static_cast<__mmask8>(doubleSet), first);
            doubleSet = _kshiftri_mask64(doubleSet, 8);
            _mm512_mask_storeu_epi64(doublesOut + 64, static_cast<__mmask8>(doubleSet), second);
            doubleSet = _kshiftri_mask64(doubleSet, 8);
            _mm512_mask_storeu_epi32(longsOut, static_cast<__mmask16>(longSet),
                                     _mm512_permutex2var_epi32(first, lowHalves, second));
            longSet = _kshiftri_mask64(longSet, 16);
            values += 128;
            doublesOut += 128;
            longsOut += 64;
        }
    }
}

// Four values at a time.
__attribute__((target("avx2"))) void copyByFour(const char* values, const ParamSet& mask,
                                                const ValueForm& form, sLastDynParams& out) {
    char* const doublesOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, doubles);
    char* const longsOut = reinterpret_cast<char*>(&out) + offsetof(sLastDynParams, longs);
    const __m256i bits = _mm256_setr_epi64x(1, 2, 4, 8);
    const __m128i bits32 = _mm_setr_epi32(1, 2, 4, 8);
    const __m256i lowHalves = _mm256_setr_epi32(0, 2, 4, 6, 0, 2, 4, 6);
    for (unsigned i = 0; i < form.limit; i += 4) {
        const std::uint64_t doubleSet = common(mask, form.doubles, i / kWord);
        const std::uint64_t longSet = common(mask, form.longs, i / kWord);
        const auto doubleLanes = static_cast<long long>(doubleSet >> (i % kWord) & 0xF);
        const auto longLanes = static_cast<int>(longSet >> (i % kWord) & 0xF);
        const __m256i lanes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values + i * 8));
        const __m256i mask64 =
            _mm256_cmpeq_epi64(_mm256_and_si256(_mm256_set1_epi64x(doubleLanes), bits), bits);
        _mm256_maskstore_epi64(reinterpret_cast<long long*>(doublesOut + i * 8), mask64, lanes);
        const __m128i mask32 =
            _mm_cmpeq_epi32(_mm_and_si128(_mm_set1_epi32(longLanes), bits32), bits32);
        const __m128i low = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(lanes, lowHalves));
        _mm_maskstore_epi32(reinterpret_cast<int*>(longsOut + i * 4), mask32, low);
    }
}

#endif

} // namespace

std::vector<ValuesCopy> usableCopies() {
    std::vector<ValuesCopy> usable;
#if defined(__x86_64__)
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq"))
        usable.push_back(copyBySixteen);
    if (__builtin_cpu_supports("avx2"))
        usable.push_back(copyByFour);
#endif
    usable.push_back(copyOneByOne);
    return usable;
}

const ValuesCopy copyLastValues = usableCopies().front();
