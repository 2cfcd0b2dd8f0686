// alert.vd, appended to and walked at the same time.

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>

#include "live/alertWriter.h"
#include "live/pattern.h"
#include "roles.h"
#include "vdreader/vdreader.h"

namespace {

// The pauses become 5 ms longer each time that so many alerts stand, so that walks get through
// before the file grows again on a machine of any speed.
constexpr std::uint64_t kAlertsBetweenPaces = 500;

std::uint64_t number = 0;

bool sameText(const char* seen, const std::string& written) {
    return seen != nullptr && written.substr(0, 12) == seen;
}

bool isPattern(const sAlertDesc* alert, const sample::Alert& written) {
    if (get_sAlertDesc_type(alert) != written.type ||
        get_sAlertDesc_perms(alert) != written.perms ||
        get_sAlertDesc_perms_ex(alert) != written.perms_ex ||
        get_sAlertDesc_perms_ex2(alert) != written.perms_ex2 ||
        get_sAlertDesc_flags(alert) != static_cast<std::uint32_t>(written.flags) ||
        !sameText(get_sAlertDesc_firm_id(alert), written.firm_id) ||
        !sameText(get_sAlertDesc_client_code(alert), written.client_code))
        return false;
    if (get_sAlertDesc_data_id_size(alert) != written.data_id.size() ||
        get_sAlertDesc_body_size(alert) != written.body.size() ||
        get_sAlertDesc_user_id_size(alert) != static_cast<std::int64_t>(written.user_ids.size()))
        return false;
    if (std::memcmp(get_sAlertDesc_body_ptr(alert), written.body.data(), written.body.size()) != 0)
        return false;
    if (!written.data_id.empty() &&
        std::memcmp(get_sAlertDesc_data_id_ptr(alert), written.data_id.data(),
                    written.data_id.size()) != 0)
        return false;
    if (!written.user_ids.empty() &&
        std::memcmp(get_sAlertDesc_user_id_ptr(alert), written.user_ids.data(),
                    4 * written.user_ids.size()) != 0)
        return false;
    return written.class_codes.empty()
               ? get_sAlertDesc_class_code(alert) == nullptr
               : sameText(get_sAlertDesc_class_code(alert), written.class_codes[0]);
}

std::int32_t compare(sAlertDesc* alert) {
    return isPattern(alert, live::patternAlert(number++)) ? 1 : 0;
}

// What a walk meets that opened the file just before the writer grew it: its mapping still ends
// where the file ended then.  The next walk opens the file anew.
bool wasOvertaken() {
    return std::strncmp(get_vdreader_error(), "MappableStorageFile mapPtr. Ensure offset", 41) == 0;
}

} // namespace

int appendAlerts(const std::string& file, double seconds) {
    live::AlertWriter writer(file);
    Writing writing(file, seconds);
    while (writing.goesOn()) {
        for (int i = 0; i < 5; ++i)
            writer.append(live::patternAlert(writer.count()));
        std::this_thread::sleep_for(
            std::chrono::milliseconds(5 + 5 * (writer.count() / kAlertsBetweenPaces)));
    }
    std::printf("alerts %llu\n", static_cast<unsigned long long>(writer.count()));
    return writing.result();
}

int walkAlerts(const std::string& folder, double seconds) {
    const std::string ini = folder + "/stress.ini";
    if (init_vdreader_classes_file((folder + "/class.vd").c_str()) != 1 ||
        init_vdreader_alerts(ini.c_str(), "s") != 1) {
        std::fprintf(stderr, "%s\n", get_vdreader_error());
        return 1;
    }
    const Reading reading(seconds);
    unsigned long long walks = 0;
    unsigned long long alerts = 0;
    unsigned long long further = 0;
    unsigned long long overtaken = 0;
    std::uint64_t before = 0;
    const auto sawEnough = [&] { return before > 100 && further >= 4 && walks > overtaken; };
    while (reading.goesOn(sawEnough())) {
        number = 0;
        const bool whole = for_each_alert(compare) == 1;
        if (whole ? number < before : !wasOvertaken()) {
            std::fprintf(stderr, "walk %llu ended at alert %llu: %s\n", walks,
                         static_cast<unsigned long long>(number), get_vdreader_error());
            return 1;
        }
        alerts += number;
        if (whole) {
            further += number > before;
            before = number;
            ++walks;
        } else {
            ++overtaken;
        }
    }
    std::printf("walks %llu alerts %llu further %llu overtaken %llu\n", walks, alerts, further,
                overtaken);
    return sawEnough() ? 0 : 1;
}
