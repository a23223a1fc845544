// The read-only XML wrapper: each element and attribute points into a tree and shares its document, so that walking
// through a document allocates nothing.
#include "sdk/util/xml.h"

#include "filereader.h"

#include <tinyxml2.h>

#include <algorithm>
#include <memory>
#include <span>
#include <utility>
#include <variant>

// Both stand for what the parser calls its own, so that the header need not know the parser. Nothing of these types is
// ever made: a pointer to one is the parser's pointer under another name, and shares the document.

struct KxXmlAttribute::Data {
    template <class Holder>
    static std::shared_ptr<const Data> Of(const std::shared_ptr<Holder>& document,
                                          const tinyxml2::XMLAttribute* attribute) noexcept {
        return attribute != nullptr ? std::shared_ptr<const Data>(document, reinterpret_cast<const Data*>(attribute))
                                    : nullptr;
    }
    static const tinyxml2::XMLAttribute* NodeOf(const std::shared_ptr<const Data>& data) noexcept {
        return reinterpret_cast<const tinyxml2::XMLAttribute*>(data.get());
    }
};

struct KxXmlElement::Data {
    template <class Holder>
    static std::shared_ptr<const Data> Of(const std::shared_ptr<Holder>& document,
                                          const tinyxml2::XMLElement* element) noexcept {
        return element != nullptr ? std::shared_ptr<const Data>(document, reinterpret_cast<const Data*>(element))
                                  : nullptr;
    }
    static const tinyxml2::XMLElement* NodeOf(const std::shared_ptr<const Data>& data) noexcept {
        return reinterpret_cast<const tinyxml2::XMLElement*>(data.get());
    }
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
    const tinyxml2::XMLAttribute* const attribute = Data::NodeOf(m_data);
    return attribute != nullptr ? std::string(attribute->Value()) : std::string();
}

KxXmlElement::KxXmlElement() = default;
KxXmlElement::~KxXmlElement() = default;
KxXmlElement::KxXmlElement(const KxXmlElement&) = default;
KxXmlElement& KxXmlElement::operator=(const KxXmlElement&) = default;

bool KxXmlElement::IsElementNull() const {
    return m_data == nullptr;
}

std::string KxXmlElement::Value() const {
    const char* text = m_data != nullptr ? Data::NodeOf(m_data)->GetText() : nullptr;
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
    KxXmlElement result;
    if (m_data != nullptr && IsName(name)) {
        result.m_data = Data::Of(m_data, Data::NodeOf(m_data)->FirstChildElement(NameOrAny(name)));
    }
    return result;
}

KxXmlElement KxXmlElement::NextSiblingElement(const std::string& name) const {
    KxXmlElement result;
    if (m_data != nullptr && IsName(name)) {
        result.m_data = Data::Of(m_data, Data::NodeOf(m_data)->NextSiblingElement(NameOrAny(name)));
    }
    return result;
}

KxXmlAttribute KxXmlElement::FirstAttribute(const std::string& name) const {
    KxXmlAttribute result;
    if (m_data != nullptr && IsName(name)) {
        result.m_data = KxXmlAttribute::Data::Of(m_data, Data::NodeOf(m_data)->FindAttribute(name.c_str()));
    }
    return result;
}

KxXMLDocument::KxXMLDocument() = default;
KxXMLDocument::~KxXMLDocument() = default;

namespace {

constexpr size_t kMaxFileBytes = size_t{16} * 1024 * 1024;
constexpr size_t kBlockBytes = size_t{64} * 1024;

// Not a vector, which would fill with zeros what is read into right afterwards.
struct FileBytes {
    explicit FileBytes(size_t roomBytes)
        : block(std::make_unique_for_overwrite<unsigned char[]>(roomBytes)),
          room(roomBytes) {}

    std::span<unsigned char> Used() const noexcept { return {block.get(), used}; }
    std::span<unsigned char> Free() const noexcept { return {block.get() + used, room - used}; }

    void Grow() {
        FileBytes larger(room + std::max(room, kBlockBytes));
        std::ranges::copy(Used(), larger.block.get());
        larger.used = used;
        *this = std::move(larger);
    }

    std::unique_ptr<unsigned char[]> block;
    size_t room;
    size_t used = 0;
};

std::variant<FileBytes, tinyxml2::XMLError> ReadWhole(const std::string& path) {
    kxutil::FileReader file(path);
    if (!file.IsOpen()) {
        return GetLastError() == ERROR_FILE_NOT_FOUND ? tinyxml2::XML_ERROR_FILE_NOT_FOUND
                                                      : tinyxml2::XML_ERROR_FILE_COULD_NOT_BE_OPENED;
    }
    // Room for all of it; the file may grow all the same while it is read.
    FileBytes bytes(std::min(file.Size(), kMaxFileBytes) + 1);
    for (;;) {
        if (bytes.Free().empty()) {
            bytes.Grow();
        }
        const auto count = file.Read(bytes.Free());
        if (!count || bytes.used + *count > kMaxFileBytes) {
            return tinyxml2::XML_ERROR_FILE_READ_ERROR;
        }
        bytes.used += *count;
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
    const std::span bytes = std::get<FileBytes>(content).Used();
    // The parser reads bytes up to the first zero: text in UTF-16 or UTF-32 would be cut instead of refused. Counting
    // goes many bytes at a time, searching one by one.
    if (std::ranges::count(bytes, 0) != 0) {
        return tinyxml2::XML_ERROR_PARSING;
    }
    const auto document = std::make_shared<tinyxml2::XMLDocument>();
    const auto error = document->Parse(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (error == tinyxml2::XML_SUCCESS) {
        m_data = std::make_shared<Data>(Data{document});
    }
    return error;
}

KxXmlElement KxXMLDocument::RootElement() const {
    KxXmlElement result;
    if (m_data != nullptr) {
        result.m_data = KxXmlElement::Data::Of(m_data->document, m_data->document->RootElement());
    }
    return result;
}
