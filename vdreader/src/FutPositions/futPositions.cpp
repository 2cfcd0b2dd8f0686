// Exports of the futures positions reader, apart from its getters.

#include "FutPositions/sFutPosition.h"
#include "flatFileWalk.h"
#include "readerFrame.h"
#include "readerSettings.h"
#include "vdreader/readers.h"

extern "C" {

std::int32_t init_vdreader_futpositions(const char* iniFile, const char* section) {
    return catchFrame([=] {
        configureFile(readerState().futPositionsFile, iniFile, section, kFutPositionsSetting);
        return 1;
    });
}

std::int32_t for_each_futposition(FutPositionCallback callback) {
    return catchFrame([=] {
        return walkFlatFile<sFutPosition>(readerState().futPositionsFile,
                                          "fclipos file %s can not be opened", callback);
    });
}

} // extern "C"
