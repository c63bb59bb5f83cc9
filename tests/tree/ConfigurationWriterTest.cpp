#include "TreeTest.h"

#include <qz/tavrel/ConfigurationWriter.h>
#include <qz/tavrel/PropertyLocator.h>
#include <qz/tavrel/ResourceManager.h>

#include <iostream>
#include <sstream>

using namespace tavrel::test;
using namespace qz::tavrel;

namespace {

class Writer : public TreeTest {
protected:
    std::ostringstream out;
    ConfigurationWriter writer{true, out};

    std::string printed() {
        const std::string text = out.str();
        out.str("");
        return text;
    }

    /// The lines of the sample properties behind `indentation`.
    static std::string properties(const std::string& indentation) {
        return indentation + "  +--- Bound (key:10 size:4 res:main)\n" + indentation +
               "  +--- Speed (key:300 size:4 res:main)\n" + indentation +
               "  +--- Label (key:301 size:8 res:main)\n";
    }
};

} // namespace

TEST_F(Writer, PrintsComponentsWithTheirPropertiesByDepth) {
    at(4)->deleteComponent();

    root->accept(&writer);

    EXPECT_EQ("Chassis #0 (id:0 type:2)\n" + properties("") +            //
                  "  Board #0 (id:1 type:3)\n" + properties("  ") +      //
                  "    Sensor #0 (id:2 type:5)\n" + properties("    ") + //
                  "    Sensor #1 (id:3 type:5)\n" + properties("    "),
              printed());
}

TEST_F(Writer, PrintsNothingWithoutOptionsWhileItsDepthGoesOn) {
    writer.setOption(0);
    writer.doTopDown(root);
    root->accept(&writer);
    EXPECT_EQ("", printed());

    writer.writeComponent(root);

    EXPECT_EQ("  Chassis #0 (id:0 type:2)\n", printed());
    writer.doBottomUp(root);
    writer.writeComponent(root);
    EXPECT_EQ("Chassis #0 (id:0 type:2)\n", printed());
}

TEST_F(Writer, PrintsComponentsAlone) {
    writer.setOption(1);

    at(4)->accept(&writer);

    EXPECT_EQ("Board #1 (id:4 type:3)\n"
              "  Sensor #0 (id:5 type:5)\n"
              "  Sensor #1 (id:6 type:5)\n",
              printed());
}

TEST_F(Writer, PrintsPropertiesAlone) {
    writer.setOption(2);

    at(4)->accept(&writer);

    EXPECT_EQ(properties("") + properties("  ") + properties("  "), printed());
}

TEST_F(Writer, ReplacesItsOptions) {
    writer.setOption(2);
    writer.setOption(1);

    at(6)->accept(&writer);

    EXPECT_EQ("Sensor #1 (id:6 type:5)\n", printed());
    writer.setOption(3);
    at(6)->accept(&writer);
    EXPECT_EQ("Sensor #1 (id:6 type:5)\n" + properties(""), printed());
}

TEST_F(Writer, PrintsASharedChildOnlyWhenAsked) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);
    ConfigurationWriter all(false, out);
    all.setOption(1);
    writer.setOption(1);
    const std::string ownedLines = "Board #0 (id:1 type:3)\n"
                                   "  Sensor #0 (id:2 type:5)\n"
                                   "  Sensor #1 (id:3 type:5)\n";

    at(1)->accept(&writer);
    EXPECT_EQ(ownedLines, printed());

    at(1)->accept(&all);
    EXPECT_EQ(ownedLines + "  Fan #0 (id:7 type:4)\n", printed());
}

TEST_F(Writer, PrintsNoPropertiesWithoutAClass) {
    Component* const lone = TreeFixture::add(root, undefined);
    tree.resolver->setComponentType("Rack", undefined);

    lone->accept(&writer);

    EXPECT_EQ("Rack #0 (id:7 type:60)\n", printed());
}

TEST_F(Writer, PrintsAnUnknownTypeWithoutAName) {
    Component* const lone = TreeFixture::add(root, undefined);
    lone->setNo(-4);

    lone->accept(&writer);

    EXPECT_EQ(" #-4 (id:7 type:60)\n", printed());
}

TEST_F(Writer, PrintsNoPropertiesWithoutATableOfThem) {
    ComponentClass::add(new ComponentClass(undefined));
    Component* const lone = TreeFixture::add(root, undefined);

    writer.writeProperties(lone);

    EXPECT_EQ("", printed());
}

TEST_F(Writer, PrintsTheStoreThatServesTheComponent) {
    ResourceManager* const resources = ResourceManager::getInstance();
    const int other = resources->addResource("other", new MemoryDatabase);
    resources->addRedirection("/Chassis#0/Board#1", 0, other);

    writer.writeProperties(at(4));

    EXPECT_EQ("  +--- Bound (key:10 size:4 res:other)\n"
              "  +--- Speed (key:300 size:4 res:other)\n"
              "  +--- Label (key:301 size:8 res:other)\n",
              printed());
}

TEST_F(Writer, PrintsLargeSizesWithoutASignAndUnknownStoresWithoutAName) {
    auto* const locator = new PropertyLocator;
    locator->addProperty(99, 400, 0xfffffffeU);
    auto* const made = new ComponentClass(undefined);
    made->setPropertyLocator(locator);
    ComponentClass::add(made);

    writer.writeProperties(TreeFixture::add(root, undefined));

    EXPECT_EQ("  +---  (key:400 size:4294967294 res:)\n", printed());
}

TEST_F(Writer, PrintsNumbersInDecimalWhateverTheStreamIsSetTo) {
    out << std::hex << std::showbase;
    writer.setOption(1);

    Component::setMaxCount(64);
    at(4)->setNo(255);
    at(4)->accept(&writer);

    EXPECT_EQ("Board #255 (id:4 type:3)\n"
              "  Sensor #0 (id:5 type:5)\n"
              "  Sensor #1 (id:6 type:5)\n",
              printed());
}

TEST_F(Writer, FlushesEachLine) {
    class Flushes : public std::stringbuf {
    public:
        int count = 0;
        int sync() override {
            ++count;
            return 0;
        }
    } buffer;
    std::ostream stream(&buffer);
    ConfigurationWriter flushing(true, stream);

    flushing.writeComponent(at(6));
    EXPECT_EQ(1, buffer.count);
    flushing.writeProperties(at(6));

    EXPECT_EQ(4, buffer.count);
}

TEST_F(Writer, StartsAtDepthZeroAgainAfterALostStep) {
    writer.doBottomUp(root);

    EXPECT_NO_THROW(writer.writeComponent(root));

    EXPECT_EQ("Chassis #0 (id:0 type:2)\n", printed());
}

TEST_F(Writer, PrintsOwnedChildrenToTheStandardOutputByDefault) {
    Component* const lone = TreeFixture::add(at(4), fan);
    at(1)->addComponent(lone);
    std::streambuf* const standard = std::cout.rdbuf(out.rdbuf());
    ConfigurationWriter byDefault;

    at(1)->accept(&byDefault);

    std::cout.rdbuf(standard);
    EXPECT_EQ("Board #0 (id:1 type:3)\n" + properties("") +          //
                  "  Sensor #0 (id:2 type:5)\n" + properties("  ") + //
                  "  Sensor #1 (id:3 type:5)\n" + properties("  "),
              printed());
}
