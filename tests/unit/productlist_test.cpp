// The list of products behind a device function switch.
#include "devicefuncswitchfixture.h"

#include "sdk/util/xml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

namespace switchtest {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct ListCase {
    const char* list;
    bool isListed;
};
std::ostream& operator<<(std::ostream& out, const ListCase& list) {
    return out << '"' << list.list << '"';
}

class ProductListTest : public DeviceFuncSwitchTest, public testing::WithParamInterface<ListCase> {
protected:
    ProductListTest() { SetProduct("Book 14"); }
};

INSTANTIATE_TEST_SUITE_P(Lists, ProductListTest,
                         testing::Values(ListCase{"Book 14;", true}, ListCase{"Book 14", false},
                                         ListCase{"A;Book 14;", true}, ListCase{"Book 14;A;", true},
                                         ListCase{"A;Book 14", false}, ListCase{"A;Book 14;B", true},
                                         ListCase{"MyBook 14;", true}, ListCase{"Book 140;", false},
                                         ListCase{"Book 1;", false}, ListCase{"book 14;", false},
                                         ListCase{"A; Book 14;", true}, ListCase{"Book 14 ;", false},
                                         ListCase{"Book 14,", false}, ListCase{";", false}, ListCase{" ", false},
                                         ListCase{"Book 14;;", true}, ListCase{"Book  14;", false}));

TEST_P(ProductListTest, SwitchOn_OnForListedProducts) {
    WriteSwitches(OneSwitch("1", std::string(" support=\"") + GetParam().list + "\""));
    EXPECT_EQ(IsBoostOn(), GetParam().isListed);
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), ElementsAre(""));
    EXPECT_THAT(Lines(), IsEmpty());
}

TEST_P(ProductListTest, SwitchOff_OffForListedProductsToo) {
    WriteSwitches(OneSwitch("0", std::string(" support=\"") + GetParam().list + "\""));
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), IsEmpty());
}

TEST_P(ProductListTest, FreeFunction_AnswersForTheElementAlone) {
    WriteSwitches(OneSwitch("0", std::string(" support=\"") + GetParam().list + "\""));
    KxXMLDocument document;
    ASSERT_EQ(document.LoadFile(SwitchFile().string()), 0);
    const KxXmlElement function = document.RootElement().FirstNode("Power").FirstNode("Boost");
    EXPECT_EQ(IsProductInSupportList(function), GetParam().isListed);
}

TEST_F(DeviceFuncSwitchTest, EmptyProductList_OnWithoutAskingForTheProduct) {
    WriteSwitches(OneSwitch("1", " support=\"\""));
    EXPECT_TRUE(IsBoostOn());
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), IsEmpty());
}

TEST_F(DeviceFuncSwitchTest, OtherAttributeLists_DoNotCount) {
    SetProduct("Book 14");
    WriteSwitches(OneSwitch("1", " Support=\"A;\" supports=\"A;\""));
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, ProductList_IsReadOnTheFunctionAlone) {
    SetProduct("Book 14");
    WriteSwitches("<S support=\"A;\"><Power support=\"A;\"><Boost>1</Boost></Power></S>");
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, ProductNameUnavailable_OffWhateverWasWritten) {
    WriteSwitches(OneSwitch("1", " support=\"Book 14;\""));
    for (const int code : {1, 2, -1}) {
        fakeutil::SetProductName({code, "Book 14"});
        EXPECT_FALSE(IsBoostOn());
    }
    EXPECT_THAT(Lines(), IsEmpty());
    SetProduct("Book 14");
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, ProductNameEmpty_Off) {
    SetProduct("");
    WriteSwitches(OneSwitch("1", " support=\"Book 14;;\""));
    EXPECT_FALSE(IsBoostOn());
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), ElementsAre(""));
}

TEST_F(DeviceFuncSwitchTest, ProductChanges_IsAskedForEachTime) {
    WriteSwitches(OneSwitch("1", " support=\"Book 14;\""));
    SetProduct("Book 14");
    EXPECT_TRUE(IsBoostOn());
    SetProduct("Book 15");
    EXPECT_FALSE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, NullElement_HasNoProductList) {
    EXPECT_TRUE(IsProductInSupportList(KxXmlElement()));
    EXPECT_THAT(fakeutil::ArgumentsOf(kAskForName), IsEmpty());
}

TEST_F(DeviceFuncSwitchTest, ProductNameThrows_OffAndWorksAgain) {
    WriteSwitches(OneSwitch("1", " support=\"Book 14;\""));
    SetProduct("Book 14");
    fakeutil::ThrowFrom(kAskForName);
    EXPECT_NO_THROW(EXPECT_FALSE(IsBoostOn()));
    EXPECT_FALSE(fakeutil::IsThrowPending());
    EXPECT_TRUE(IsBoostOn());
}

TEST_F(DeviceFuncSwitchTest, FreeFunctionThrowsInside_False) {
    WriteSwitches(OneSwitch("1", " support=\"Book 14;\""));
    SetProduct("Book 14");
    KxXMLDocument document;
    ASSERT_EQ(document.LoadFile(SwitchFile().string()), 0);
    const KxXmlElement function = document.RootElement().FirstNode("Power").FirstNode("Boost");
    fakeutil::ThrowFrom(kAskForName);
    EXPECT_NO_THROW(EXPECT_FALSE(IsProductInSupportList(function)));
    EXPECT_TRUE(IsProductInSupportList(function));
}

} // namespace

} // namespace switchtest
