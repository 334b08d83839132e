#pragma once

#include <QByteArray>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

// What a parser of foreign bytes must hold for whatever bytes it gets. Each target is a function
// that reads them and ends the program where a property doesn't hold.
namespace Fuzz
{

using Target = void (*)(const QByteArray &bytes);

// By the name of its corpus and dictionary.
inline std::map<std::string, Target> &targets()
{
    static std::map<std::string, Target> all;
    return all;
}

struct Registration {
    Registration(const char *name, Target target) { targets()[name] = target; }
};

inline void require(bool holds, const char *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "Doesn't hold: %s\n", property);
    std::abort();
}

} // namespace Fuzz
