// Which plug-ins of the software shelf the product profile lists.
#include "sdk/util/softshelf.h"

#include "productprofile.h"

#include <exception>

ZLKSoftShelf* ZLKSoftShelf::GetInstance() {
    static ZLKSoftShelf instance;
    return &instance;
}

bool ZLKSoftShelf::IsSupportPlugin(const std::string& name) const try {
    return kxutil::ProductProfile::Load().ListsPlugin(name);
} catch (const std::exception&) {
    return false;
}
