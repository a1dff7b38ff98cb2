#include "tessalyd/services/storage/UnlistedClasses.h"

#include "dicom/data/StorageClasses.h"
#include "tessalyd/Log.h"

namespace tessaly::tessalyd {

void UnlistedClasses::meet(const std::string& sopClass, const std::string& sender) {
    if (dicom::isStandardStorage(sopClass))
        return;
    const std::scoped_lock lock{mutex_};
    if (met_.size() == Most || !met_.insert(sopClass).second)
        return;
    OFLOG_WARN(serverLog(), sender.c_str() << ": the SOP class " << sopClass.c_str()
                                           << " is none that is known; its objects are taken");
    if (met_.size() == Most)
        OFLOG_WARN(serverLog(), "further unknown SOP classes are not named");
}

}  // namespace tessaly::tessalyd
