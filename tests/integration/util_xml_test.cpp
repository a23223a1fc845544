// XML wrapper of the real Util.dll, fed with good and hostile files.
#include "sdk/util/xml.h"
#include "support/hostfolder.h"

#include <gtest/gtest.h>

namespace {

using kxtest::TempFolder;
using kxtest::WriteFileBytes;

/** A document loaded from text, and how loading ended. */
struct Loaded {
    explicit Loaded(std::string_view text) {
        const TempFolder folder;
        WriteFileBytes(folder.Name("document.xml"), text);
        error = document.LoadFile(folder.Name("document.xml"));
    }

    KxXMLDocument document;
    KxXmlError error = -1;
};

std::string Nested(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) {
        text += "<a>";
    }
    for (int level = 0; level < depth; ++level) {
        text += "</a>";
    }
    return text;
}

TEST(UtilXml, ElementsAndAttributes_AreFoundByNameAndInOrder) {
    Loaded loaded("<?xml version=\"1.0\"?><r><x v='0'/><e v='1'>one</e><!-- - --><e v='2'/><f v='3'/></r>");
    ASSERT_EQ(loaded.error, 0);
    KxXmlElement element = loaded.document.RootElement().FirstNode("e");
    EXPECT_EQ(element.FirstAttribute("v").Value(), "1");
    EXPECT_EQ(element.Value(), "one");
    EXPECT_EQ(element.NextSiblingElement("f").FirstAttribute("v").Value(), "3");
    element = element.NextSiblingElement();
    EXPECT_EQ(element.FirstAttribute("v").Value(), "2");
    EXPECT_EQ(element.Value(), "");
    element = element.NextSiblingElement("");
    EXPECT_EQ(element.FirstAttribute("v").Value(), "3");
    EXPECT_TRUE(element.NextSiblingElement().IsElementNull());
    EXPECT_EQ(loaded.document.RootElement().FirstNode("").FirstAttribute("v").Value(), "0");
}

TEST(UtilXml, NamesAndValues_KeepLetterCaseBlanksAndEntities) {
    Loaded loaded("<r><E/><e Path=' a&amp;b&#x41; '/></r>");
    const KxXmlElement element = loaded.document.RootElement().FirstNode("e");
    EXPECT_EQ(element.FirstAttribute("Path").Value(), " a&bA ");
    EXPECT_TRUE(element.FirstAttribute("path").IsAttributeNull());
}

TEST(UtilXml, NamesThatGoOnBehindAZero_NameNothing) {
    Loaded loaded("<r a='1'><e/><e/></r>");
    const KxXmlElement root = loaded.document.RootElement();
    EXPECT_TRUE(root.FirstAttribute(std::string("a\0x", 3)).IsAttributeNull());
    EXPECT_TRUE(root.FirstNode(std::string("e\0x", 3)).IsElementNull());
    EXPECT_TRUE(root.FirstNode("e").NextSiblingElement(std::string("e\0x", 3)).IsElementNull());
}

TEST(UtilXml, EmptyAttribute_IsPresentAndEmpty) {
    Loaded loaded("<r a=''/>");
    EXPECT_FALSE(loaded.document.RootElement().FirstAttribute("a").IsAttributeNull());
    EXPECT_EQ(loaded.document.RootElement().FirstAttribute("a").Value(), "");
}

TEST(UtilXml, NullElementsAndAttributes_AnswerEveryQuery) {
    const KxXmlElement element;
    EXPECT_TRUE(element.IsElementNull());
    EXPECT_EQ(element.Value(), "");
    EXPECT_TRUE(element.FirstNode("a").IsElementNull());
    EXPECT_TRUE(element.NextSiblingElement().IsElementNull());
    EXPECT_TRUE(element.FirstAttribute("a").IsAttributeNull());
    EXPECT_EQ(element.FirstAttribute("a").Value(), "");
    EXPECT_TRUE(KxXMLDocument().RootElement().IsElementNull());
}

TEST(UtilXml, Element_OutlivesItsDocument) {
    KxXmlElement element;
    KxXmlAttribute attribute;
    {
        Loaded loaded("<r><e a='1'>text</e></r>");
        element = loaded.document.RootElement().FirstNode("e");
        attribute = element.FirstAttribute("a");
        loaded.document.LoadFile("no such file");
    }
    EXPECT_EQ(element.Value(), "text");
    EXPECT_EQ(attribute.Value(), "1");
}

TEST(UtilXml, ByteOrderMarkOfUtf8_IsSkipped) {
    Loaded loaded("\xEF\xBB\xBF<r a='\xC3\xA4'/>");
    ASSERT_EQ(loaded.error, 0);
    EXPECT_EQ(loaded.document.RootElement().FirstAttribute("a").Value(), "\xC3\xA4");
}

TEST(UtilXml, BytesOfAnotherCodePage_PassThroughUnchanged) {
    Loaded loaded("<r a='\xE4\xFF'/>");
    ASSERT_EQ(loaded.error, 0);
    EXPECT_EQ(loaded.document.RootElement().FirstAttribute("a").Value(), "\xE4\xFF");
}

TEST(UtilXml, WhatIsNoDocument_IsAnErrorAndEmpty) {
    const std::string_view texts[] = {
        "", "   ", "<r>", "<r></s>", "<r a>", "<r a='1'/ ", "<", "<r><![CDATA[", std::string_view("<r/>\0", 5)};
    for (const std::string_view text : texts) {
        Loaded loaded(text);
        EXPECT_NE(loaded.error, 0) << text;
        EXPECT_TRUE(loaded.document.RootElement().IsElementNull()) << text;
    }
}

TEST(UtilXml, DocumentWithoutAnElement_HasNoRoot) {
    EXPECT_TRUE(Loaded("no markup").document.RootElement().IsElementNull());
    EXPECT_TRUE(Loaded("<!-- nothing -->").document.RootElement().IsElementNull());
}

TEST(UtilXml, Utf16Document_IsAnError) {
    EXPECT_NE(Loaded(std::string_view("\xFF\xFE<\0r\0/\0>\0", 10)).error, 0);
    EXPECT_NE(Loaded(std::string_view("\xFE\xFF\0<\0r\0/\0>", 10)).error, 0);
}

TEST(UtilXml, DocumentNestedTooDeep_IsAnError) {
    EXPECT_EQ(Loaded(Nested(98)).error, 0);
    EXPECT_NE(Loaded(Nested(99)).error, 0);
    EXPECT_NE(Loaded(Nested(10'000)).error, 0);
    EXPECT_NE(Loaded(std::string(300'000, '<')).error, 0);
}

TEST(UtilXml, FileOf50Megabytes_IsAnError) {
    EXPECT_NE(Loaded("<r>" + std::string(50'000'000, 'x') + "</r>").error, 0);
}

TEST(UtilXml, FileOf16Mebibytes_IsLoadedAndOneByteMoreIsAnError) {
    const std::string text(16 * 1024 * 1024 - 7, 'x');
    Loaded largest("<r>" + text + "</r>");
    EXPECT_EQ(largest.error, 0);
    EXPECT_EQ(largest.document.RootElement().Value(), text);
    EXPECT_NE(Loaded("<r>" + text + "y</r>").error, 0);
}

TEST(UtilXml, MissingFileOrFolderInItsPlace_IsAnError) {
    const TempFolder folder;
    KxXMLDocument document;
    EXPECT_NE(document.LoadFile(folder.Name("missing.xml")), 0);
    EXPECT_NE(document.LoadFile(folder.Path().string()), 0);
    EXPECT_NE(document.LoadFile(""), 0);
}

TEST(UtilXml, FailedLoad_EmptiesTheDocumentAndAGoodOneFillsItAgain) {
    const TempFolder folder;
    WriteFileBytes(folder.Name("good.xml"), "<r/>");
    KxXMLDocument document;
    ASSERT_EQ(document.LoadFile(folder.Name("good.xml")), 0);
    ASSERT_NE(document.LoadFile(folder.Name("missing.xml")), 0);
    EXPECT_TRUE(document.RootElement().IsElementNull());
    ASSERT_EQ(document.LoadFile(folder.Name("good.xml")), 0);
    EXPECT_FALSE(document.RootElement().IsElementNull());
}

} // namespace
