// Exports of the alerts reader, apart from its getters.

#include "Alerts/alertDecoder.h"
#include "Alerts/sAlertDesc.h"
#include "libn/storage.h"
#include "platform/pathText.h"
#include "readerFrame.h"
#include "readerSettings.h"
#include "vdreader/readers.h"

namespace {

constexpr std::int32_t kMagic = 888888888;
// Memory that one walk maps at most.
constexpr std::uint64_t kMaxMemUsage = 3276800;

std::int32_t walkAlerts(const std::string& name, AlertCallback callback) {
    libn::storage::RecordFile file(platform::pathOfName(name), kMagic, kMaxMemUsage);
    const std::uint64_t count = file.count;
    // One for all records, whose parts keep their memory.
    sAlertDesc alert;
    std::int32_t answer = kGoOn;
    for (std::uint64_t recNo = 0; recNo < count && answer == kGoOn; ++recNo) {
        file.readRecord(recNo, alert.word1, [&](auto& in) { decodeAlert(in, alert); });
        answer = callback(&alert);
    }
    file.close();
    return answer == kGoOn || answer == kStop ? 1 : 0;
}

} // namespace

extern "C" {

std::int32_t init_vdreader_alerts(const char* iniFile, const char* section) {
    // Deliberate: the classes are asked for and not used.  Hosts of the family initialise them
    // first and take a refusal here as a sign that they did not.
    if (!classesAreReady())
        return 0;
    return catchFrame([=] {
        configureFile(readerState().alertsFile, iniFile, section, kAlertsSetting);
        return 1;
    });
}

std::int32_t for_each_alert(AlertCallback callback) {
    return catchFrame([=] { return walkAlerts(readerState().alertsFile, callback); });
}

} // extern "C"
