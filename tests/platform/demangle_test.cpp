// Readable forms of decorated names.

#include <gtest/gtest.h>

#include <string>

#include "platform/debugHelp.h"

namespace {

std::string whole(const char* name) {
    char out[256] = "#";
    const std::size_t length = platform::demangledName(name, out, sizeof out, false);
    EXPECT_EQ(length, length != 0 ? std::string(out).size() : 0u);
    return length != 0 ? out : "";
}
std::string shortName(const char* name) {
    char out[256] = "#";
    return platform::demangledName(name, out, sizeof out, true) != 0 ? out : "";
}

} // namespace

TEST(Demangle, NameWithParameters) {
    EXPECT_EQ(whole("_ZN2ns1fEi"), "ns::f(int)");
    EXPECT_EQ(shortName("_ZN2ns1fEi"), "ns::f");
}

TEST(Demangle, ConstMember) {
    EXPECT_EQ(whole("_ZNK2ns1C6methodEPKc"), "ns::C::method(char const*) const");
    EXPECT_EQ(shortName("_ZNK2ns1C6methodEPKc"), "ns::C::method");
}

TEST(Demangle, TemplateHasItsResultInFront) {
    EXPECT_EQ(whole("_ZN2ns4tmplIdEEiT_Pv"), "int ns::tmpl<double>(double, void*)");
    EXPECT_EQ(shortName("_ZN2ns4tmplIdEEiT_Pv"), "ns::tmpl<double>");
}

TEST(Demangle, FunctionParametersAndOperators) {
    EXPECT_EQ(whole("_Z1gPFvvE"), "g(void (*)())");
    EXPECT_EQ(shortName("_Z1gPFvvE"), "g");
    EXPECT_EQ(whole("_ZN1CclEi"), "C::operator()(int)");
    EXPECT_EQ(shortName("_ZN1CclEi"), "C::operator()");
    EXPECT_EQ(shortName("_ZN1CrmEi"), "C::operator%");
    EXPECT_EQ(shortName("_ZN1CcvbEv"), "C::operator bool");
}

TEST(Demangle, AnonymousNamespaceStays) {
    EXPECT_EQ(shortName("_ZN12_GLOBAL__N_11fEv"), "(anonymous namespace)::f");
}

TEST(Demangle, CloneIsWithoutParameters) {
    EXPECT_EQ(whole("_Z1fi.isra.0"), "f(int) [clone .isra.0]");
    EXPECT_EQ(shortName("_Z1fi.isra.0"), "f");
}

TEST(Demangle, DataHasNoParameters) {
    EXPECT_EQ(whole("_ZN2ns5valueE"), "ns::value");
    EXPECT_EQ(shortName("_ZN2ns5valueE"), "ns::value");
}

TEST(Demangle, OtherNamesAreLeftAlone) {
    for (const char* const name : {"main", "", "_", "_Zz", "?f@@YAXXZ", "__libc_start_main"}) {
        EXPECT_EQ(whole(name), "") << name;
        char out[4] = "###";
        EXPECT_EQ(platform::demangledName(name, out, sizeof out, false), 0u);
        EXPECT_STREQ(out, "###");
    }
}

TEST(Demangle, LongNameIsCutAndTerminated) {
    char out[6] = "#####";
    EXPECT_EQ(platform::demangledName("_ZN2ns1fEi", out, sizeof out, false), 5u);
    EXPECT_STREQ(out, "ns::f");
    EXPECT_EQ(platform::demangledName("_ZN2ns1fEi", out, 0, false), 0u);
}
