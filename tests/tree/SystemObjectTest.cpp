#include <qz/tavrel/Component.h>

#include <gtest/gtest.h>

#include <sstream>

using qz::tavrel::Component;
using qz::tavrel::SystemObject;

namespace {

/// Reads and writes one word.
class Word : public SystemObject {
public:
    std::string text;

    std::istream& read(std::istream& stream) override { return stream >> text; }
    std::ostream& write(std::ostream& stream) override { return stream << text; }
};

} // namespace

TEST(SystemObject, ReadsAndWritesNothingByDefault) {
    std::stringstream stream("left alone");
    SystemObject object;

    EXPECT_EQ(&stream, &(static_cast<std::istream&>(stream) >> object));
    EXPECT_EQ(&stream, &(static_cast<std::ostream&>(stream) << object));

    EXPECT_EQ("left alone", stream.str());
    EXPECT_EQ(0, stream.tellg());
    EXPECT_TRUE(stream.good());
}

TEST(SystemObject, IsReadAndWrittenByItsOwnOperations) {
    std::istringstream in("first second");
    std::ostringstream out;
    Word word;

    in >> word >> word;
    out << word << word;

    EXPECT_EQ("secondsecond", out.str());
}

TEST(SystemObject, HasAComponentThatLeavesStreamsUntouched) {
    std::stringstream stream("left alone");
    Component component;

    stream >> component;
    stream << component;

    EXPECT_EQ("left alone", stream.str());
    EXPECT_EQ(0, stream.tellg());
    EXPECT_EQ(0, stream.tellp());
    EXPECT_EQ(-1, component.getComponentId());
}
