// Writes a record as JSON, reads it back, and shows which numbers JSON text does not preserve.

#include <nivur/nivur.h>

#include <cstdio>

using NIVUR::Dictionary;
using NIVUR::Serialization;

int main() {
    Dictionary size;
    size.setInteger("width", 1920);
    Dictionary screen;
    screen.setString("name", "television");
    screen.setDecimal("scale", 1.5L);
    screen.setObject("size", size);  // a copy: later changes of size do not affect it
    screen.setStringArray("inputs", {"hdmi", "network"});

    const Dictionary read = Serialization::deserialize(Serialization::serialize(screen));
    std::printf("%u keys: %s, %.1Lf, %lld, %s\n", read.size(), read.getString("name").c_str(),
                read.getDecimal("scale"), read.getObject("size").getInteger("width"),
                read.getStringArray("inputs").back().c_str());

    // A getter returns 0 or "" for a missing key and for a value of another type.
    std::printf("scale as an integer: %lld, is it there: %s, its type: %d\n",
                read.getInteger("scale"), read.hasKey("scale") ? "yes" : "no",
                read.getType("scale"));

    size.setInteger("width", 4294967297);  // 2^32 + 1: JSON text has the low 32 bits
    std::printf("%s\n", Serialization::serialize(size).c_str());
    std::printf("one number too large: %u keys\n",
                Serialization::deserialize(R"({"name": "lost", "big": 1e999})").size());
    return read.getObject("size").getInteger("width") == 1920 ? 0 : 1;
}
