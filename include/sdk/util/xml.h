/**
 * @file
 * Read-only XML of Util.dll: a document and light-weight elements and attributes that point into it.
 *
 * Elements and attributes are values that may be copied freely and keep the document's tree alive.
 * Every query on a null element or attribute is safe and yields a null one or an empty text. Nothing is thrown but
 * std::bad_alloc.
 */
#pragma once

#include "sdk/util/utilexport.h"

#include <memory>
#include <string>

/** Result of KxXMLDocument::LoadFile: 0 is success, every other value is tinyxml2's number of the error. */
using KxXmlError = int;

/** One attribute of an element, or none. */
class KXUTIL_API KxXmlAttribute {
public:
    /** Holds no attribute. */
    KxXmlAttribute();
    ~KxXmlAttribute();

    /** Points to the same attribute. */
    KxXmlAttribute(const KxXmlAttribute&);

    /** Points to the same attribute. */
    KxXmlAttribute& operator=(const KxXmlAttribute&);

    /** Whether this holds no attribute. */
    bool IsAttributeNull() const;

    /** The attribute's value with entities resolved; empty when there is none. */
    std::string Value() const;

private:
    friend class KxXmlElement;
    struct Data;
    std::shared_ptr<const Data> m_data;
};

/** One element of a document, or none. */
class KXUTIL_API KxXmlElement {
public:
    /** Holds no element. */
    KxXmlElement();
    ~KxXmlElement();

    /** Points to the same element. */
    KxXmlElement(const KxXmlElement&);

    /** Points to the same element. */
    KxXmlElement& operator=(const KxXmlElement&);

    /** Whether this holds no element. */
    bool IsElementNull() const;

    /** The text at the element's beginning; empty when it has none. */
    std::string Value() const;

    /** The first child element with this name; an empty name means any. */
    KxXmlElement FirstNode(const std::string& name) const;

    /** The next sibling element with this name; an empty name means any. */
    KxXmlElement NextSiblingElement(const std::string& name = std::string()) const;

    /** The attribute with this name. */
    KxXmlAttribute FirstAttribute(const std::string& name) const;

private:
    friend class KxXMLDocument;
    struct Data;
    std::shared_ptr<const Data> m_data;
};

/** An XML file read whole. Not to be used from two threads at the same time. */
class KXUTIL_API KxXMLDocument {
public:
    KxXMLDocument();
    ~KxXMLDocument();
    KxXMLDocument(const KxXMLDocument&) = delete;
    KxXMLDocument& operator=(const KxXMLDocument&) = delete;

    /**
     * Reads and parses a file, replacing what was loaded before.
     * @param path in the process's ANSI code page
     * @return 0, or the error; the document is then empty. A file of more than 16 MiB, one that holds a zero byte (as
     *         UTF-16 does), and one whose elements are nested deeper than 98 levels, the root counted, is an error.
     *         Text is taken as UTF-8; bytes that are none pass through unchanged.
     */
    KxXmlError LoadFile(const std::string& path);

    /** The root element; a null one when nothing is loaded. */
    KxXmlElement RootElement() const;

private:
    struct Data;
    std::shared_ptr<Data> m_data;
};
