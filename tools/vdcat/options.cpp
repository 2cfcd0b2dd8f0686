// The command line of vdcat.

#include "vdcat/options.h"

#include <iterator>

#include "support/commandLine.h"

namespace vdcat {

namespace {

constexpr const char* kKindNames[] = {"info",    "classes", "securities", "params",   "last",
                                      "journal", "alerts",  "limits",     "positions"};

constexpr const char* kDescription =
    "Shows what the data files of a trading server hold, and changes none of them unless told to\n"
    "read --live.\n"
    "\n"
    "  info        each kind with its state, count and error\n"
    "  classes     the classes of class.vd\n"
    "  securities  the securities of the classes\n"
    "  params      the parameters of the classes\n"
    "  last        the latest values of the securities, from data.vd\n"
    "  journal     the change records of data.vd\n"
    "  alerts      the alerts of alert.vd\n"
    "  limits      the futures limits of flimit.vd\n"
    "  positions   the futures positions of fclipos.vd\n";

constexpr const char* kFooter =
    "A terminal gets a table of some fields, a pipe or a file one JSON object a line with all of\n"
    "them. Texts come out as UTF-8: bytes that are none count as the characters 128 to 255.\n"
    "\n"
    "last gives a row for each value in a table and CSV, and in JSON an object for each security\n"
    "with its values under the names of the parameters; null where the slot has none. journal has\n"
    "the values of a record by name as well, where its mask fits its counts. Alerts have their "
    "body\n"
    "as text, null where it is none, and in hexadecimal digits.\n"
    "\n"
    "data.vd and alert.vd can only be read by a program that may write to them. So vdcat copies\n"
    "them into a temporary folder and reads the copies; where a server writes at that moment, a\n"
    "copy may hold half of a change. --live reads the server's own files in place: that sets the\n"
    "close stamp of data.vd, writes the heads of its blocks again as they are, and makes alert.vd\n"
    "larger where a record lies close to its end. No lock is taken, so that a value may come out\n"
    "half old and half new.\n"
    "\n"
    "--follow (last, journal, alerts; with --live) shows what is there, and then what comes: new\n"
    "records and alerts, and of the latest values in a table and CSV those that changed, in JSON\n"
    "the securities with a change. It ends at Ctrl-C, after --seconds or --limit, and when nobody\n"
    "reads any more. Each look at the journal costs 83 KB of memory that the reader keeps.\n"
    "\n"
    "Exit codes: 0 done, 1 internal failure, 2 wrong usage, 3 a file cannot be opened, 4 a file "
    "is\n"
    "malformed or holds no class, 7 the output cannot be written. With info, the code of the "
    "first\n"
    "kind that failed. Output that nobody reads to its end is no failure.\n"
    "\n"
    "Examples:\n"
    "  vdcat info /srv/data\n"
    "  vdcat securities /srv/data --class FUTURE01 --fields sec_code,mat_date,lot_size\n"
    "  vdcat positions --ini reader.ini --section vdreader --csv > positions.csv\n"
    "  vdcat last /srv/data --class SHARE01 --sec XYZ --live --follow";

struct Flags {
    std::string kind;
    std::string fields;
    bool table = false;
    bool json = false;
    bool csv = false;
};

void describeOutput(CLI::App& app, Request& request, Flags& flags) {
    app.add_flag("--table", flags.table, "A table, also into a pipe");
    app.add_flag("--json", flags.json, "JSON Lines, also on a terminal");
    app.add_flag("--csv", flags.csv, "CSV with a head line (RFC 4180)");
    app.add_option("--fields", flags.fields, "Fields to show, in this order")->type_name("A,B,C");
    app.add_option("--limit", request.limit, "Stop after so many records")
        ->type_name("N")
        ->check(tool::wholeNumber(UINT64_MAX));
}

void describeLive(CLI::App& app, Request& request) {
    app.add_flag("--live", request.live,
                 "Read the server's own files, not copies (info, last, journal, alerts)");
    app.add_flag("--follow", request.follow,
                 "Go on with what comes (last, journal, alerts; with --live)");
    app.add_flag("--new", request.onlyNew, "Leave out what is there at the start (--follow)");
    app.add_option("--interval", request.interval,
                   "Milliseconds from one look to the next (--follow)")
        ->type_name("N")
        ->check(tool::wholeNumber(3'600'000))
        ->capture_default_str();
    app.add_option("--seconds", request.seconds, "Stop after so many seconds (--follow)")
        ->type_name("N")
        ->check(tool::wholeNumber(1'000'000'000));
}

void describe(CLI::App& app, Request& request, Flags& flags) {
    app.set_version_flag("--version", "vdcat " VDREADER_TOOL_VERSION, "Print the version");
    app.set_help_flag("-h,--help", "Print this help");
    app.footer(kFooter);
    app.add_option("KIND", flags.kind, "What to show")->required()->type_name("");
    app.add_option("DIR", request.folder, "Folder of the data files")->type_name("");
    app.add_option("--ini", request.iniFile,
                   "Ini file that names the data files, instead of DIR; relative names in it count "
                   "from the folder of vdcat")
        ->type_name("FILE");
    app.add_option("--section", request.section, "Section of the ini file, vdreader by default")
        ->type_name("NAME");
    app.add_option("--class", request.classCode,
                   "Only this class (classes, securities, params, last, journal)")
        ->type_name("CODE");
    app.add_option("--sec", request.secCode,
                   "Only this security (securities, last, journal, positions)")
        ->type_name("CODE");
    app.add_option("--lang", request.lang, "Language of names (securities, params), 0 by default")
        ->type_name("N")
        ->check(tool::wholeNumber(UINT16_MAX));
    app.add_option("--log", request.logFolder,
                   "Folder for events.log and errors.log of this run and of the library, rotated "
                   "by a sarn.ini there")
        ->type_name("LOGDIR");
    describeOutput(app, request, flags);
    describeLive(app, request);
}

[[noreturn]] void refuse(const std::string& reason) {
    throw tool::Failure(tool::kUsage, reason + " (try --help)");
}

void checkSource(const CLI::App& app, const Request& request) {
    if (request.folder.empty() == request.iniFile.empty())
        refuse("either a folder or --ini is needed");
    if (app.count("--section") && request.iniFile.empty())
        refuse("--section goes with --ini alone");
}

// An option that would do nothing is a mistake of the caller's.
void checkFilters(const CLI::App& app, const Request& request) {
    const Kind kind = request.kind;
    const std::string ending = std::string(" does not go with ") + nameOf(kind);
    const bool named = kind == Kind::Securities || kind == Kind::Params;
    const bool valued = kind == Kind::Last || kind == Kind::Journal;
    if (request.classCode && !named && !valued && kind != Kind::Classes)
        refuse("--class" + ending);
    if (request.classCode && request.classCode->empty())
        refuse("--class needs a code");
    if (request.secCode && !valued && kind != Kind::Securities && kind != Kind::Positions)
        refuse("--sec" + ending);
    if (app.count("--lang") && !named)
        refuse("--lang" + ending);
}

void checkLive(const CLI::App& app, const Request& request) {
    const Kind kind = request.kind;
    const std::string ending = std::string(" does not go with ") + nameOf(kind);
    const bool growing = kind == Kind::Last || kind == Kind::Journal || kind == Kind::Alerts;
    if (request.live && !growing && kind != Kind::Info)
        refuse("--live" + ending);
    if (request.follow && !growing)
        refuse("--follow" + ending);
    if (request.follow && !request.live)
        refuse("--follow needs --live, since a copy does not change");
    for (const char* option : {"--new", "--interval", "--seconds"})
        if (app.count(option) && !request.follow)
            refuse(std::string(option) + " goes with --follow alone");
}

Kind kindOf(const std::string& name) {
    std::string known;
    for (std::size_t i = 0; i < std::size(kKindNames); ++i) {
        if (name == kKindNames[i])
            return static_cast<Kind>(i);
        known += std::string(i ? ", " : "") + kKindNames[i];
    }
    refuse("there is no kind '" + name + "'; there are " + known);
}

std::optional<Format> formatOf(const Flags& flags) {
    if (flags.table + flags.json + flags.csv > 1)
        refuse("--table, --json and --csv exclude one another");
    if (flags.table)
        return Format::Table;
    if (flags.json)
        return Format::Json;
    return flags.csv ? std::optional(Format::Csv) : std::nullopt;
}

std::vector<std::string> splitAtCommas(const std::string& list) {
    std::vector<std::string> pieces(1);
    for (const char letter : list) {
        if (letter == ',')
            pieces.emplace_back();
        else
            pieces.back() += letter;
    }
    return pieces;
}

} // namespace

const char* nameOf(Kind kind) {
    return kKindNames[static_cast<std::size_t>(kind)];
}

std::variant<Request, std::string> parseOptions(int argc, char** argv) {
    Request request;
    Flags flags;
    request.section = "vdreader";
    CLI::App app(kDescription, "vdcat");
    describe(app, request, flags);
    if (const auto text = tool::parseCommandLine(app, argc, argv))
        return *text;
    request.kind = kindOf(flags.kind);
    request.format = formatOf(flags);
    if (app.count("--fields"))
        request.fields = splitAtCommas(flags.fields);
    checkSource(app, request);
    checkFilters(app, request);
    checkLive(app, request);
    return request;
}

} // namespace vdcat
