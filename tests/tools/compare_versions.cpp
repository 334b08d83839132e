// compare-versions FIRST SECOND...: prints, for each pair of versions, on a line of its own, a
// negative number, 0 or a positive one, as the program compares them.

#include <QString>
#include <QVersionNumber>

#include <cstdio>

int main(int argc, char *argv[])
{
    for (int index = 1; index + 1 < argc; index += 2) {
        std::printf("%d\n", QVersionNumber::compare(
                                QVersionNumber::fromString(QString::fromUtf8(argv[index])),
                                QVersionNumber::fromString(QString::fromUtf8(argv[index + 1]))));
    }
    return 0;
}
