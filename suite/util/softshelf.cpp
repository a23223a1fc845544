// Which plug-ins of the software shelf the product profile lists.
#include "sdk/util/softshelf.h"

#include "productprofile.h"

ZLKSoftShelf* ZLKSoftShelf::GetInstance() {
    static ZLKSoftShelf instance;
    return &instance;
}

bool ZLKSoftShelf::IsSupportPlugin(const std::string& name) const {
    return kxutil::ProductProfile::Load().ListsPlugin(name);
}
