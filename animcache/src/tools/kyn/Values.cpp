#include "Values.h"

#include <cstdio>

namespace kyncli {

std::string valueText(int value) {
    return std::to_string(value);
}
std::string valueText(long value) {
    return std::to_string(value);
}
std::string valueText(float value) {
    return number(value);
}
std::string valueText(double value) {
    return number(value);
}
std::string valueText(const std::string& value) {
    return value;
}
std::string valueText(char value) {
    char text[3];
    std::snprintf(text, sizeof text, "%02x", static_cast<unsigned char>(value));
    return text;
}

Json valueJson(int value) {
    return value;
}
Json valueJson(long value) {
    return value;
}
Json valueJson(float value) {
    return jsonNumber(value);
}
Json valueJson(double value) {
    return jsonNumber(value);
}
Json valueJson(const std::string& value) {
    return value;
}
Json valueJson(char value) {
    return valueText(value);
}

int itemWidth(unsigned char dimension) {
    switch (dimension) {
        case 2:
        case 3:
        case 4:
            return dimension;
        case 9:
            return 3;
        case 16:
            return 4;
        default:
            return 1;
    }
}

std::string typeWords(const Kyn::KynHeader& header) {
    std::string words = Kyn::kynTypeName(header.type);
    if (header.compound != 0) words += std::string(" ") + Kyn::kynCompoundName(header.compound);
    const std::string dimension = Kyn::kynDimensionName(header.dimension);
    if (header.dimension != 0 && !dimension.empty()) words += " " + dimension;
    return words;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\n\r") == std::string::npos) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + "\"";
}

}  // namespace kyncli
