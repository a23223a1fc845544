/**
 * @file
 * The real utility library's code inside the scriptable one. The real sources are compiled once more with their public
 * names changed (realutil_*.cpp), because both sets of names live in one module.
 */
#pragma once

#include <memory>
#include <string>

namespace realutil {

bool FileExists(const std::string& path);
std::string GetFileSha256Hex(const std::string& path);

/** A document, element or attribute of the real library behind one interface. */
class XmlNode {
public:
    virtual ~XmlNode() = default;
    virtual bool IsNull() const = 0;
    virtual std::string Value() const = 0;
    virtual std::shared_ptr<const XmlNode> FirstNode(const std::string& name) const = 0;
    virtual std::shared_ptr<const XmlNode> NextSiblingElement(const std::string& name) const = 0;
    virtual std::shared_ptr<const XmlNode> FirstAttribute(const std::string& name) const = 0;
};

class XmlDocument {
public:
    virtual ~XmlDocument() = default;
    virtual int LoadFile(const std::string& path) = 0;
    virtual std::shared_ptr<const XmlNode> RootElement() const = 0;
};

std::unique_ptr<XmlDocument> NewXmlDocument();

} // namespace realutil
