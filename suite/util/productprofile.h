// The product profile: one XML file in which an installation says what product it is and what it supports.
#pragma once

#include "sdk/util/productadapt.h"
#include "sdk/util/xml.h"

#include <optional>
#include <string>

namespace kxutil {

/** The profile as it stands on disk when it is loaded. What it does not say, or says in another form, is absent. */
class ProductProfile {
public:
    /** Reads "config\ProductProfile.xml" in the folder of Util.dll. */
    static ProductProfile Load();

    /** Whether the file was there and could be parsed. */
    bool IsLoaded() const { return !m_root.IsElementNull(); }

    std::optional<std::string> ProductName() const;
    std::optional<int> ProductIndex() const;
    std::optional<bool> Feature(const std::string& name) const;
    std::optional<ProductAdapt::PromoteParamInfo> PromoteParams(const std::string& key) const;
    bool ListsPlugin(const std::string& name) const;
    bool UsesAgreementService() const;

private:
    KxXmlElement m_root;
};

} // namespace kxutil
