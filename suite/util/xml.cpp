// The read-only XML wrapper: each element and attribute is a pointer into a tree that it keeps alive.
#include "sdk/util/xml.h"

#include "filereader.h"

#include <tinyxml2.h>

#include <cstring>
#include <variant>
#include <vector>

struct KxXmlAttribute::Data {
    std::shared_ptr<const tinyxml2::XMLDocument> document;
    const tinyxml2::XMLAttribute* attribute = nullptr;
};

struct KxXmlElement::Data {
    std::shared_ptr<const tinyxml2::XMLDocument> document;
    const tinyxml2::XMLElement* element = nullptr;
};

struct KxXMLDocument::Data {
    std::shared_ptr<const tinyxml2::XMLDocument> document;
};

KxXmlAttribute::KxXmlAttribute() = default;
KxXmlAttribute::~KxXmlAttribute() = default;
KxXmlAttribute::KxXmlAttribute(const KxXmlAttribute&) = default;
KxXmlAttribute& KxXmlAttribute::operator=(const KxXmlAttribute&) = default;

bool KxXmlAttribute::IsAttributeNull() const {
    return m_data == nullptr;
}

std::string KxXmlAttribute::Value() const {
    if (!m_data) {
        return {};
    }
    return m_data->attribute->Value();
}

KxXmlElement::KxXmlElement() = default;
KxXmlElement::~KxXmlElement() = default;
KxXmlElement::KxXmlElement(const KxXmlElement&) = default;
KxXmlElement& KxXmlElement::operator=(const KxXmlElement&) = default;

bool KxXmlElement::IsElementNull() const {
    return m_data == nullptr;
}

std::string KxXmlElement::Value() const {
    const char* text = m_data ? m_data->element->GetText() : nullptr;
    return text != nullptr ? std::string(text) : std::string();
}

namespace {

// tinyxml2 takes a null pointer for "any name".
const char* NameOrAny(const std::string& name) {
    return name.empty() ? nullptr : name.c_str();
}

// tinyxml2 reads a name up to its first zero: a text that goes on behind it would find something else.
bool IsName(const std::string& name) {
    return name.find('\0') == std::string::npos;
}

} // namespace

KxXmlElement KxXmlElement::FirstNode(const std::string& name) const {
    const auto* child = m_data && IsName(name) ? m_data->element->FirstChildElement(NameOrAny(name)) : nullptr;
    KxXmlElement result;
    if (child != nullptr) {
        result.m_data = std::make_shared<const Data>(Data{m_data->document, child});
    }
    return result;
}

KxXmlElement KxXmlElement::NextSiblingElement(const std::string& name) const {
    const auto* sibling = m_data && IsName(name) ? m_data->element->NextSiblingElement(NameOrAny(name)) : nullptr;
    KxXmlElement result;
    if (sibling != nullptr) {
        result.m_data = std::make_shared<const Data>(Data{m_data->document, sibling});
    }
    return result;
}

KxXmlAttribute KxXmlElement::FirstAttribute(const std::string& name) const {
    const auto* attribute = m_data && IsName(name) ? m_data->element->FindAttribute(name.c_str()) : nullptr;
    KxXmlAttribute result;
    if (attribute != nullptr) {
        result.m_data = std::make_shared<const KxXmlAttribute::Data>(KxXmlAttribute::Data{m_data->document, attribute});
    }
    return result;
}

KxXMLDocument::KxXMLDocument() = default;
KxXMLDocument::~KxXMLDocument() = default;

namespace {

constexpr size_t kMaxFileBytes = size_t{16} * 1024 * 1024;
constexpr size_t kBlockBytes = size_t{64} * 1024;

using FileBytes = std::vector<unsigned char>;

std::variant<FileBytes, tinyxml2::XMLError> ReadWhole(const std::string& path) {
    kxutil::FileReader file(path);
    if (!file.IsOpen()) {
        return GetLastError() == ERROR_FILE_NOT_FOUND ? tinyxml2::XML_ERROR_FILE_NOT_FOUND
                                                      : tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED;
    }
    FileBytes bytes;
    for (;;) {
        const size_t used = bytes.size();
        bytes.resize(used + kBlockBytes);
        const auto count = file.Read(std::span(bytes).subspan(used));
        if (!count || used + *count > kMaxFileBytes) {
            return tinyxml2::XML_ERROR_FILE_READ_ERROR;
        }
        bytes.resize(used + *count);
        if (*count == 0) {
            return bytes;
        }
    }
}

} // namespace

KxXmlError KxXMLDocument::LoadFile(const std::string& path) {
    m_data.reset();
    const auto content = ReadWhole(path);
    if (const auto* error = std::get_if<tinyxml2::XMLError>(&content)) {
        return *error;
    }
    const auto& bytes = std::get<FileBytes>(content);
    // The parser reads bytes up to the first zero: text in UTF-16 or UTF-32 would be cut instead of refused.
    if (!bytes.empty() && std::memchr(bytes.data(), 0, bytes.size()) != nullptr) {
        return tinyxml2::XML_ERROR_PARSING;
    }
    const auto document = std::make_shared<tinyxml2::XMLDocument>();
    const auto error = document->Parse(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (error != tinyxml2::XML_SUCCESS) {
        return error;
    }
    m_data = std::make_shared<Data>(Data{document});
    return tinyxml2::XML_SUCCESS;
}

KxXmlElement KxXMLDocument::RootElement() const {
    const auto* root = m_data ? m_data->document->RootElement() : nullptr;
    KxXmlElement result;
    if (root != nullptr) {
        result.m_data = std::make_shared<const KxXmlElement::Data>(KxXmlElement::Data{m_data->document, root});
    }
    return result;
}
