// Writes seeds of the corpora into FOLDER/class, FOLDER/flat and so on: good files of several
// shapes, and inputs that reach a branch which damage would take long to find.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sample/alertFile.h"
#include "sample/classFile.h"
#include "sample/dataFile.h"
#include "sample/futuresFiles.h"
#include "sample/market.h"
#include "support/sparseFile.h"

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

std::vector<sample::Alert> someAlerts() {
    std::vector<sample::Alert> made(3);
    made[0].send_type = 6;
    made[0].firm_id = "FIRM";
    made[0].data_id = "identity";
    made[0].body = std::string(500, 'b');
    made[1].send_type = 200;
    made[1].flags = 0x100000001;
    made[1].body = "not shown";
    made[1].body_size = 0;
    made[1].class_codes = {"CODE", "OTHER"};
    made[2].body_size = 77;
    made[2].user_ids = {1, 2, 3};
    return made;
}

// Callback's stop and its result in front.
void writeAlert(const std::string& name, const sample::AlertFileOptions& options,
                const std::vector<sample::Alert>& alerts, const std::string& stop = "\0\2"s,
                const std::string& trailer = {}) {
    write("alert", name,
          stop + fuzzing::inputOfFile(sample::encodeAlertFile(alerts, options)) + trailer);
}

void writeAlertSeeds() {
    const std::vector<sample::Alert> some = someAlerts();
    write("alert", "new", "\0\2"s + fuzzing::inputOfFile({}));
    writeAlert("none", {}, {});
    writeAlert("some", {}, some);
    writeAlert("stopped", {}, some, "\1\2"s);
    writeAlert("refused", {}, some, "\2\0"s);
    writeAlert("gaps", {.gapWords = 3}, some);
    writeAlert("gap-of-numbers", {.numbers = {0, 1, 3}}, some);
    writeAlert("second-table", {.numbers = {0, 16384, 32769}}, some);
    writeAlert("foreign", {.magic1 = 7}, some);
    writeAlert("no-tables", {.storedRoot = 0, .storedCount = 2}, {});
    writeAlert("tables-over-records", {.storedNextFree = 101, .storedRoot = 0}, some);
    writeAlert("count-too-high", {.storedCount = 9}, some);
    writeAlert("short-file", {.fileSize = 262144 + 3000}, some);
    writeAlert("root-far", {.storedRoot = std::uint64_t{1} << 40}, some);
    const std::uint64_t beyond = (std::uint64_t{1} << 40) + 1;
    sample::AlertFileLayout layout;
    sample::encodeAlertFile(some, {}, &layout);
    writeAlert("table-beyond", {.damage = {{layout.root, beyond}}}, some);
    writeAlert("head-beyond", {.damage = {{layout.alerts[0].slot, beyond}}}, some);
    writeAlert("body-beyond", {.damage = {{layout.alerts[1].head, beyond}}}, some);
    writeAlert("root-beyond", {.storedRoot = beyond}, some);
    writeAlert("free-beyond", {.storedNextFree = ~std::uint64_t{0}, .storedRoot = 0}, some);
    std::vector<sample::Alert> lying = some;
    lying[0].storedDataIdLength = 100'000;
    lying[1].storedUserIds = std::uint64_t{1} << 28;
    writeAlert("vector-far", {}, lying);
    // More than a walk maps at a time.
    lying[0].storedDataIdLength = 3'500'000;
    writeAlert("vector-large", {.fileSize = 4'000'000}, lying);
    lying[0].storedDataIdLength = (std::uint64_t{1} << 30) + 1;
    writeAlert("vector-too-long", {}, lying);
    // The slots of record 0 and of its table stand among the header's words.
    writeAlert("tables-overlap",
               {.storedRoot = 3, .storedCount = 300, .damage = {{5, 32868}, {6, 32868}}}, some);
    writeAlert("short-counts", {}, some, "\0\2"s, "FLT!\x21\0\0\0"s);
    for (char call : {1, 2, 3, 4, 5, 8, 12})
        writeAlert("failing-call-" + std::to_string(call), {}, some, "\0\2"s,
                   "FLT!\0"s + call + "\0\0"s);
    writeAlert("failing-for-good", {}, some, "\0\2"s, "FLT!\0\6\1\0"s);
}

sample::Record change(std::int32_t number, std::int32_t classId, std::uint32_t security) {
    sample::Record made;
    made.dataField1 = number;
    made.dataField2 = 20;
    made.dataField3 = 30;
    made.class_id = classId;
    made.sec_id = security;
    made.mask = {5};
    made.longs = {number, 2};
    made.doubles = {1.5};
    return made;
}

// Three pages of records, some of them of no class or security, and slots of all kinds.
sample::DataFile someData() {
    sample::DataFile made;
    made.header.elements = 4;
    made.header.maxSecs = 5;
    made.header.dataPageSize = 2200;
    made.header.eventPageSize = 180;
    made.header.closeStamp = sample::kClosedStamp;
    for (std::uint32_t i = 0; i < 4; ++i) {
        made.slots[i].class_id = i < 3 ? 1 : 2;
        for (std::size_t param = i; param < 128; param += i + 1)
            made.slots[i].setDouble(param, static_cast<double>(param) / 4);
    }
    made.slots[3].filled = 0;
    made.eventPages = {{{change(10, 1, 0), change(11, 1, 3)}},
                       {{change(12, 2, 181), change(13, 9, 9)}},
                       {{change(14, -5, 0x80000000)}}};
    return made;
}

// How many records go by, the callback's last result, and the choice of operations in front.
void writeData(const std::string& name, const sample::DataFile& file,
               const std::string& head = "\0\2\7\0\0\0"s, const std::string& trailer = {}) {
    write("data", name, head + fuzzing::inputOfFile(sample::encodeDataFile(file)) + trailer);
}

std::string fourBytes(std::uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

void writeDataHeaderSeeds() {
    struct {
        const char* name;
        std::uint64_t offset;
        std::uint32_t value;
    } const damaged[] = {{"signature", 24, 0},
                         {"max-secs-negative", 24 + 48, 0xFFFFFFFF},
                         {"slots-none", 24 + 56, 1079},
                         {"data-pages-negative", 24 + 52, 0x80000000},
                         {"data-pages-none", 24 + 52, 0},
                         {"data-pages-many", 24 + 52, 0x7FFFFFFF},
                         {"data-pages-beyond-file", 24 + 52, 300},
                         {"data-page-far", 24 + 68, 0x200},
                         {"event-pages-negative", 24 + 100, 0x80000000},
                         {"event-pages-none", 24 + 100, 0},
                         {"event-pages-many", 24 + 100, 100'000},
                         {"event-page-size-none", 24 + 72, 0},
                         {"event-page-size-small", 24 + 72, 10},
                         {"event-page-on-header", 24 + 80, 0},
                         {"event-page-on-slots", 24 + 80, 132},
                         {"event-page-across-slots", 24 + 80, 150},
                         {"current-page-on-header", 24 + 88, 20},
                         {"current-page-far", 24 + 92, 0xFFFFFFFF}};
    for (const auto& [name, offset, value] : damaged) {
        sample::DataFile file = someData();
        file.damage = {{offset, fourBytes(value)}};
        writeData(name, file, "\0\2"s + fourBytes(static_cast<std::uint32_t>(offset)));
    }
}

// Pages and records that tell what they do not have.
void writeJournalSeeds() {
    sample::DataFile file = someData();
    file.eventPages[0].storedUsed = 0xFFFFFFF0;
    file.eventPages[1].storedUsed = 60;
    writeData("used-lies", file);
    for (const std::uint32_t used : {100u, 170u, 0xFFFFFFFFu}) {
        file = someData();
        file.eventPages[2].storedUsed = used;
        writeData("used-of-current-" + std::to_string(used), file);
    }
    file = someData();
    file.eventPages[0].records[0].storedMaskSize = 17;
    file.eventPages[1].records[0].storedLongCount = 255;
    file.eventPages[1].records[1].storedDoubleCount = 255;
    writeData("counts-lie", file);
    file = someData();
    file.header.eventPageSize = 3000;
    for (int i = 0; i < 2; ++i)
        file.eventPages[i].records[0].longs.assign(129 + i, 7);
    file.eventPages[0].records[0].doubles.clear();
    file.eventPages[1].records[0].mask.assign(17, 1);
    writeData("counts-high", file);
    file = someData();
    file.eventPages[1].records[0].dataField1 = -1;
    writeData("negative-number", file);
    file = someData();
    file.eventPages[1].records[0].dataField1 = 10;
    writeData("equal-numbers", file);
}

void writeDataSeeds() {
    sample::DataFileLayout layout;
    const std::size_t size = sample::encodeDataFile(someData(), &layout).size();
    write("data", "empty", "\0\2\1\0\0\0"s + fuzzing::inputOfFile({}));
    for (std::uint32_t i = 0; i < 12; ++i)
        writeData("some-" + std::to_string(i), someData(), "\0\2"s + fourBytes(i * 1000));
    writeData("stopped", someData(), "\1\2\1\0\0\0"s);
    writeData("refused", someData(), "\1\0\1\0\0\0"s);
    sample::DataFile file = someData();
    file.zeroBlockBehind = false;
    writeData("no-end", file);
    file = someData();
    file.eventPages[2].records.clear();
    writeData("empty-last-page", file);
    for (const std::size_t cut :
         {std::size_t{1}, std::size_t{100}, std::size_t{133}, size - 200, size - 300, size - 600}) {
        file = someData();
        file.fileSize = cut;
        writeData("cut-" + std::to_string(cut), file);
    }
    file = someData();
    file.slots[0].lock = 1;
    file.slots[1].class_id = 77;
    writeData("held-and-foreign", file);
    file = someData();
    file.header.currentEventPage = layout.eventPages[0].point;
    writeData("current-is-first", file);
    file = someData();
    file.damage = {{24 + 72, fourBytes(20)}};
    writeData("pages-smaller-than-heads", file);
    writeData("short-counts", someData(), "\0\2\7\0\0\0"s, "FLT!\x21\0\0\0"s);
    for (char call = 1; call < 20; call = static_cast<char>(call + 2))
        writeData("failing-call-" + std::to_string(call), someData(), "\0\2\0\0\0\0"s,
                  "FLT!\0"s + call + "\0\0"s);
    writeData("failing-for-good", someData(), "\0\2\0\0\0\0"s, "FLT!\0\x0B\1\0"s);
    writeJournalSeeds();
    writeDataHeaderSeeds();
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
    write("scan", "rotation", "\0\0events.log,3\0%s,%d"s);
    write("scan", "no-number", "\0\0events.log\0%s,%d"s);
    write("scan", "widths",
          "\0\0"
          "20261121 10:40\0%4d%2d%2d%3s:%1c%C"s);
    write("scan", "cut", "\0\0abcdef;ghi,\0%3s;%5S,"s);
    write("scan", "fractions",
          "\0\0"
          "12.75|-1e3|.5\0%.2f|%f|%5.f"s);
    write("scan", "percent",
          "\0\0"
          "50%-7%\0text %s%% %h%%"s);
    write("scan", "left-out", "\5\0a b c\0%s %s %s %s"s);
    write("scan", "no-conversions", "\0\0abc\0%x%%%5%-d%"s);
    write("scan", "large",
          "\0\0"
          "99999999999 -99999999999\0%99999999999999999999d %h"s);
    write("scan", "blanks", "\0\0 \t\r\n , \n,x\0%s,%s,%s,%s"s);
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
        writeAlertSeeds();
        writeClassSeeds();
        writeDataSeeds();
        writeFlatSeeds();
        writeIniSeeds();
        writeTextSeeds();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
    return 0;
}
