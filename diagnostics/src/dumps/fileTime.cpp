// File times to calendar fields.

#include "diagnostics/fileTime.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <exception>
#include <string>

#include "vdreader/log.h"

namespace {

namespace posix_time = boost::posix_time;

posix_time::ptime timeOf(const FileTime& fileTime) {
    const std::uint64_t units = std::uint64_t{fileTime.high} << 32 | fileTime.low;
    const posix_time::ptime start(boost::gregorian::date(1601, 1, 1));
    return start + posix_time::microseconds(static_cast<std::int64_t>(units / 10));
}

void fill(SystemTime& out, const posix_time::ptime& time) {
    // The date first: a year that the calendar does not reach raises here.
    const boost::gregorian::date date = time.date();
    const boost::gregorian::date::ymd_type fields = date.year_month_day();
    const posix_time::time_duration day = time.time_of_day();
    const auto narrow = [](auto value) { return static_cast<std::uint16_t>(value); };
    out = {.year = narrow(static_cast<int>(fields.year)),
           .month = narrow(fields.month.as_number()),
           .dayOfWeek = narrow(date.day_of_week().as_number()),
           .day = narrow(fields.day.as_number()),
           .hour = narrow(day.hours()),
           .minute = narrow(day.minutes()),
           .second = narrow(day.seconds()),
           .milliseconds = narrow(day.total_milliseconds() % 1000)};
}

bool tellFailure(const FileTime& fileTime, const std::string& reason) {
    const std::string start = "FileTimeToSystemTimeImpl(" + std::to_string(fileTime.high) + ':' +
                              std::to_string(fileTime.low);
    error("%s", (start + reason).c_str());
    return false;
}

} // namespace

bool FileTimeToSystemTimeImpl(const FileTime* fileTime, SystemTime* out) {
    if (fileTime == nullptr || out == nullptr) {
        error("%s", "Invalid params");
        return false;
    }
    try {
        fill(*out, timeOf(*fileTime));
        return true;
    } catch (const std::exception& failure) {
        return tellFailure(*fileTime, std::string(") failed ") + failure.what());
    } catch (...) {
        return tellFailure(*fileTime, ") failed. Unknown error. ");
    }
}
