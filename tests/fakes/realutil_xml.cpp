// The real XML classes under other names.
#define KxXmlAttribute RealXmlAttribute
#define KxXmlElement RealXmlElement
#define KxXMLDocument RealXMLDocument
#include "suite/util/xml.cpp" // NOLINT(bugprone-suspicious-include)
#undef KxXmlAttribute
#undef KxXmlElement
#undef KxXMLDocument

#include "fakes/realutil.h"

namespace realutil {

namespace {

class Attribute : public XmlNode {
public:
    explicit Attribute(const RealXmlAttribute& real) : m_real(real) {}
    bool IsNull() const override { return m_real.IsAttributeNull(); }
    std::string Value() const override { return m_real.Value(); }
    std::shared_ptr<const XmlNode> FirstNode(const std::string&) const override { return nullptr; }
    std::shared_ptr<const XmlNode> NextSiblingElement(const std::string&) const override { return nullptr; }
    std::shared_ptr<const XmlNode> FirstAttribute(const std::string&) const override { return nullptr; }

private:
    RealXmlAttribute m_real;
};

class Element : public XmlNode {
public:
    explicit Element(const RealXmlElement& real) : m_real(real) {}
    bool IsNull() const override { return m_real.IsElementNull(); }
    std::string Value() const override { return m_real.Value(); }
    std::shared_ptr<const XmlNode> FirstNode(const std::string& name) const override {
        return std::make_shared<Element>(m_real.FirstNode(name));
    }
    std::shared_ptr<const XmlNode> NextSiblingElement(const std::string& name) const override {
        return std::make_shared<Element>(m_real.NextSiblingElement(name));
    }
    std::shared_ptr<const XmlNode> FirstAttribute(const std::string& name) const override {
        return std::make_shared<Attribute>(m_real.FirstAttribute(name));
    }

private:
    RealXmlElement m_real;
};

class Document : public XmlDocument {
public:
    int LoadFile(const std::string& path) override { return m_real.LoadFile(path); }
    std::shared_ptr<const XmlNode> RootElement() const override {
        return std::make_shared<Element>(m_real.RootElement());
    }

private:
    RealXMLDocument m_real;
};

} // namespace

std::unique_ptr<XmlDocument> NewXmlDocument() {
    return std::make_unique<Document>();
}

} // namespace realutil
