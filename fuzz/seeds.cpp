// Writes seeds of the corpora into FOLDER/class, FOLDER/flat and so on: good files of several
// shapes, and inputs that reach a branch which damage would take long to find.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "sample/classFile.h"
#include "sample/futuresFiles.h"
#include "sample/market.h"

using namespace std::string_literals;

namespace {

std::filesystem::path root;

void write(const std::string& target, const std::string& name, const std::string& bytes) {
    std::filesystem::create_directories(root / target);
    std::ofstream out(root / target / name, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

sample::ClassRecord smallClass(int id) {
    sample::ClassRecord made;
    made.classId = id;
    made.classCode = "C" + std::to_string(id);
    made.fh = "head";
    sample::Security security;
    security.sec_id = 5;
    security.sec_code = "SEC";
    security.names = {{0, "short", "long name of it"}, {1, "", "x"}};
    security.subDescs.resize(2);
    security.subDescs[1].code2 = "sub";
    made.securities = {security, security};
    made.securities[1].names.clear();
    sample::Param param;
    param.par_id = 3;
    param.db_name = "PRICE";
    param.names = {{0, "p", "price", "a;b"}, {0, "", "", ""}};
    made.params = {param, param};
    return made;
}

void writeClassSeeds() {
    using sample::encodeClassFile;
    write("class", "empty", "");
    write("class", "head", sample::encodeClassHead(0));
    write("class", "one", encodeClassFile({smallClass(1)}));
    const std::string two = encodeClassFile({smallClass(1), smallClass(1)});
    write("class", "two", two);
    sample::ClassRecord free = smallClass(2);
    free.magic = sample::kFreeMagic;
    write("class", "free", encodeClassFile({smallClass(1), free, smallClass(3)}));
    sample::ClassRecord bare;
    bare.classCode = "THIRTEENCHARS";
    write("class", "bare", encodeClassFile({bare}));
    sample::ClassRecord promising = smallClass(4);
    promising.storedSecuritiesCount = 9;
    write("class", "promising", encodeClassFile({promising}));
    write("class", "cut", two.substr(0, two.size() - 700));
    sample::ClassRecord negative = smallClass(5);
    negative.storedParamsCount = -1;
    write("class", "negative", encodeClassFile({negative}));
    write("class", "short-counts", two + "FLT!\x21\0\0\0"s);
    write("class", "failing-call", two + "FLT!\0\x05\0\0"s);
    write("class", "failing-for-good", two + "FLT!\x11\x09\x01\0"s);
    sample::MarketOptions options;
    options.classes = 2;
    options.securities = 4;
    options.params = 3;
    options.limits = options.positions = 2;
    write("class", "market", encodeClassFile(sample::makeMarket(options).classes));
}

void writeFlatSeeds() {
    sample::MarketOptions options;
    options.classes = 2;
    options.securities = 4;
    options.params = 2;
    options.limits = options.positions = 3;
    const sample::Market market = sample::makeMarket(options);
    const std::string limits = sample::encodeFutLimits(market.limits);
    const std::string positions = sample::encodeFutPositions(market.positions);
    // Kind, stop after, result of the stopping callback, lie about the length, and its size.
    write("flat", "limits", "\0\xFF\1\0\0"s + limits);
    write("flat", "positions", "\1\xFF\1\0\0"s + positions);
    write("flat", "stopped", "\0\1\2\0\0"s + limits);
    write("flat", "refused", "\1\1\3\0\0"s + positions);
    write("flat", "short", "\0\xFF\1\0\0"s + limits.substr(0, 300));
    write("flat", "grown", "\0\xFF\1\1\x50"s + limits);
    write("flat", "shrunk", "\1\xFF\1\2\x7F"s + positions);
    // More records than the first block holds.
    std::string many;
    for (int i = 0; i < 12; ++i)
        many += limits;
    write("flat", "many-limits", "\0\xFF\1\0\0"s + many);
    write("flat", "many-grown", "\1\xFF\1\3\x01"s + many);
    write("flat", "empty", "\0\xFF\1\0\0"s);
    write("flat", "failing-open", "\0\xFF\1\0\0"s + limits + "FLT!\0\1\0\0"s);
}

void writeIniSeeds() {
    write("ini", "plain", "[s]\nkey = Value X\nn=12\nb=1\n");
    write("ini", "before", "a=1\n[s]\nb=2\n");
    write("ini", "twice", "[s]\nk=1\n[S ]\nk=2\nm=3\n");
    write("ini", "equal-keys", "[s]\nk=1\nK=2\nk = \n");
    write("ini", "comments", "; c\n# d\n[s] tail\nx=a=b\n=no\nnone\n y\t=\t1 ; n\r\n");
    write("ini", "malformed", "[open\na=1\n[ ]\nb=2\n[t]\nc=-99999999999\n");
    write("ini", "numbers", "[s]\na= +7x\nb=-2147483649\nc=abc\nd=0\n");
    const std::string longValue = "[s]\nlong=" + std::string(20000, 'v') + "\nkey=1\n";
    write("ini", "long-line", longValue);
    write("ini", "long-line-short-counts", longValue + "FLT!\x35\0\0\0"s);
    write("ini", "short-counts", "[s]\nkey=1\nother=2\n" + "FLT!\x35\0\0\0"s);
    write("ini", "failing-read", "[s]\nkey=1\nother=2\n" + "FLT!\x35\6\0\0"s);
    write("ini", "failing-open", "[s]\nkey=1\n" + "FLT!\0\1\0\0"s);
}

void writeTextSeeds() {
    write("format", "plain", "\x40\0text without conversions"s);
    write("format", "percent",
          "\x10\0"
          "100%% %d %5.2f|%-8s|%p %n %c %Lg %llx"s);
    write("format", "foreign", "\xFF\0%I64d %I32u %IX %08IX %*d %.*s %1$d %q %"s);
    write("format", "long", "\xFF\x0F%300d%.200x%#o% d%+i%e%A"s);
    write("path", "beside", "/opt/app/bin/host\0class.vd"s);
    write("path", "dots", "/opt/app/bin/host\0...\\data\\x.vd"s);
    write("path", "dots-only", "/opt/host\0......"s);
    write("path", "drive", "C:\\a\\b\\p.exe\0C:x"s);
    write("path", "network", "C:\\a\\b\\p.exe\0\\\\host\\x"s);
    write("path", "rooted", "/p\0/etc\\x/y"s);
    write("path", "no-program", "\0.\\x"s);
    write("path", "long",
          std::string(250, 'a') + '/' + std::string(20, 'b') + '\0' + std::string(300, 'c'));
    write("filter", "include", "A,B\nA\nB\nC\n");
    write("filter", "exclude", "x-A,B\nA\nB\nC\n");
    write("filter", "empty-codes", "A,,-B,\n\nA\n-B\n");
    write("filter", "all", "-\nA\n");
    write("filter", "blanks", " A, B \nA\n B\nB\nTHIRTEENCHARS\n");
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
        return 2;
    }
    try {
        root = arguments[1];
        writeClassSeeds();
        writeFlatSeeds();
        writeIniSeeds();
        writeTextSeeds();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
