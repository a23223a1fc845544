// Reads the product profile; ProductProfile.sample.xml documents the file.
#include "productprofile.h"

#include "common/win/modulepath.h"
#include "outofmemory.h"
#include "sdk/util/text.h"

#include <windows.h>

#include <charconv>
#include <system_error>
#include <utility>

namespace kxutil {

namespace {

constexpr char kProfileFile[] = "\\config\\ProductProfile.xml";

// The folder of this library in the process's ANSI code page, without a backslash at its end; empty on failure.
std::string OwnFolder() {
    static constexpr char kSomethingOfThisModule = 0;
    const HMODULE module = kx::ModuleContaining(&kSomethingOfThisModule);
    const std::optional<std::wstring> folder = module != nullptr ? kx::ModuleFolder(module) : std::nullopt;
    if (!folder) {
        kxutil::ThrowIfOutOfMemory(GetLastError());
        return {};
    }
    return DE::UnicodeToANSI(*folder);
}

std::optional<std::string> Text(const KxXmlElement& element, const std::string& attribute) {
    const KxXmlAttribute found = element.FirstAttribute(attribute);
    return found.IsAttributeNull() ? std::nullopt : std::optional(found.Value());
}

std::optional<int> Number(const KxXmlElement& element, const std::string& attribute) {
    const auto text = Text(element, attribute);
    if (!text) {
        return std::nullopt;
    }
    int number = 0;
    const char* const end = text->data() + text->size();
    const auto [stopped, error] = std::from_chars(text->data(), end, number);
    return error == std::errc() && stopped == end ? std::optional(number) : std::nullopt;
}

std::optional<bool> Flag(const KxXmlElement& element, const std::string& attribute) {
    const auto text = Text(element, attribute);
    if (text == "true") {
        return true;
    }
    return text == "false" ? std::optional(false) : std::nullopt;
}

// The first element "name" in "parent" whose attribute has that value.
KxXmlElement Find(const KxXmlElement& parent, const std::string& name, const std::string& attribute,
                  const std::string& value) {
    KxXmlElement element = parent.FirstNode(name);
    while (!element.IsElementNull() && Text(element, attribute) != value) {
        element = element.NextSiblingElement(name);
    }
    return element;
}

} // namespace

ProductProfile ProductProfile::Load() {
    ProductProfile profile;
    const std::string folder = OwnFolder();
    KxXMLDocument document;
    if (!folder.empty() && document.LoadFile(folder + kProfileFile) == 0) {
        profile.m_root = document.RootElement();
    }
    return profile;
}

std::optional<std::string> ProductProfile::ProductName() const {
    const auto name = Text(m_root.FirstNode("Product"), "name");
    return name && !name->empty() ? name : std::nullopt;
}

std::optional<int> ProductProfile::ProductIndex() const {
    return Number(m_root.FirstNode("Product"), "index");
}

std::optional<bool> ProductProfile::Feature(const std::string& name) const {
    return Flag(Find(m_root.FirstNode("Features"), "Feature", "name", name), "present");
}

std::optional<ProductAdapt::PromoteParamInfo> ProductProfile::PromoteParams(const std::string& key) const {
    const KxXmlElement entry = Find(m_root.FirstNode("PromoteParams"), "PromoteParam", "key", key);
    auto productName = Text(entry, "productName");
    if (!productName) {
        return std::nullopt;
    }
    return ProductAdapt::PromoteParamInfo{Number(entry, "id").value_or(0), std::move(*productName),
                                          Text(entry, "channel").value_or(std::string()),
                                          Number(entry, "flags").value_or(0)};
}

bool ProductProfile::ListsPlugin(const std::string& name) const {
    return !Find(m_root.FirstNode("Plugins"), "Plugin", "name", name).IsElementNull();
}

bool ProductProfile::UsesAgreementService() const {
    return Flag(m_root.FirstNode("AgreementService"), "inUse").value_or(false);
}

} // namespace kxutil
