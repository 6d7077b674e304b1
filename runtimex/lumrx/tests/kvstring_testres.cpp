// A resource library for the string tests: texts by message id.
#include <string>

extern "C" __attribute__((visibility("default"))) const char16_t* lumResourceString(unsigned id) {
    static const std::u16string kLong1023(1023, u'x');
    static const std::u16string kLong1022(1022, u'y');
    switch (id) {
    case 1:
        return u"first message";
    case 2:
        return kLong1023.c_str();
    case 3:
        return kLong1022.c_str();
    default:
        return nullptr;
    }
}
