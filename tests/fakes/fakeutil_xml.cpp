// Scriptable XML classes.
#include "fakes/fakeutil_internal.h"
#include "fakes/realutil.h"

#include "sdk/util/xml.h"

namespace {

fakeutil::Scripted<KxXmlError, const std::string&> g_loadFile;
fakeutil::Scripted<bool> g_rootElementIsNull;

} // namespace

namespace fakeutil {

void ScriptLoadFile(Script<KxXmlError, const std::string&> script) {
    g_loadFile.Set(std::move(script));
}
void ScriptRootElementIsNull(Script<bool> script) {
    g_rootElementIsNull.Set(std::move(script));
}

} // namespace fakeutil

struct KxXmlAttribute::Data {
    std::shared_ptr<const realutil::XmlNode> node;
};

KxXmlAttribute::KxXmlAttribute() = default;
KxXmlAttribute::~KxXmlAttribute() = default;
KxXmlAttribute::KxXmlAttribute(const KxXmlAttribute&) = default;
KxXmlAttribute& KxXmlAttribute::operator=(const KxXmlAttribute&) = default;

bool KxXmlAttribute::IsAttributeNull() const {
    fakeutil::Record("KxXmlAttribute::IsAttributeNull", "");
    return m_data == nullptr || m_data->node->IsNull();
}

std::string KxXmlAttribute::Value() const {
    fakeutil::Record("KxXmlAttribute::Value", "");
    return m_data == nullptr ? std::string() : m_data->node->Value();
}

struct KxXmlElement::Data {
    std::shared_ptr<const realutil::XmlNode> node;
};

KxXmlElement::KxXmlElement() = default;
KxXmlElement::~KxXmlElement() = default;
KxXmlElement::KxXmlElement(const KxXmlElement&) = default;
KxXmlElement& KxXmlElement::operator=(const KxXmlElement&) = default;

bool KxXmlElement::IsElementNull() const {
    fakeutil::Record("KxXmlElement::IsElementNull", "");
    return m_data == nullptr || m_data->node->IsNull();
}

std::string KxXmlElement::Value() const {
    fakeutil::Record("KxXmlElement::Value", "");
    return m_data == nullptr ? std::string() : m_data->node->Value();
}

KxXmlElement KxXmlElement::FirstNode(const std::string& name) const {
    fakeutil::Record("KxXmlElement::FirstNode", name);
    KxXmlElement found;
    if (m_data != nullptr) {
        found.m_data = std::make_shared<Data>(Data{m_data->node->FirstNode(name)});
    }
    return found;
}

KxXmlElement KxXmlElement::NextSiblingElement(const std::string& name) const {
    fakeutil::Record("KxXmlElement::NextSiblingElement", name);
    KxXmlElement found;
    if (m_data != nullptr) {
        found.m_data = std::make_shared<Data>(Data{m_data->node->NextSiblingElement(name)});
    }
    return found;
}

KxXmlAttribute KxXmlElement::FirstAttribute(const std::string& name) const {
    fakeutil::Record("KxXmlElement::FirstAttribute", name);
    KxXmlAttribute found;
    if (m_data != nullptr) {
        found.m_data = std::make_shared<KxXmlAttribute::Data>(KxXmlAttribute::Data{m_data->node->FirstAttribute(name)});
    }
    return found;
}

struct KxXMLDocument::Data {
    std::unique_ptr<realutil::XmlDocument> document;
};

KxXMLDocument::KxXMLDocument() : m_data(std::make_shared<Data>(Data{realutil::NewXmlDocument()})) {}
KxXMLDocument::~KxXMLDocument() = default;

KxXmlError KxXMLDocument::LoadFile(const std::string& path) {
    fakeutil::Record("KxXMLDocument::LoadFile", path);
    return g_loadFile.Decide([&] { return m_data->document->LoadFile(path); }, path);
}

KxXmlElement KxXMLDocument::RootElement() const {
    fakeutil::Record("KxXMLDocument::RootElement", "");
    KxXmlElement root;
    if (!g_rootElementIsNull.Decide([] { return false; })) {
        root.m_data = std::make_shared<KxXmlElement::Data>(KxXmlElement::Data{m_data->document->RootElement()});
    }
    return root;
}
