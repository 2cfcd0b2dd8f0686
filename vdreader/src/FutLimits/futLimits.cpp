// Exports of the futures limits reader, apart from its getters.

#include "FutLimits/sFutLimit.h"
#include "flatFileWalk.h"
#include "readerFrame.h"
#include "readerSettings.h"
#include "vdreader/readers.h"

extern "C" {

std::int32_t init_vdreader_futlimits(const char* iniFile, const char* section) {
    return catchFrame([=] {
        configureFile(readerState().futLimitsFile, iniFile, section, kFutLimitsSetting);
        return 1;
    });
}

std::int32_t for_each_futlimit(FutLimitCallback callback) {
    return catchFrame([=] {
        return walkFlatFile<sFutLimit>(readerState().futLimitsFile,
                                       "flimits file %s can not be opened", callback);
    });
}

} // extern "C"
