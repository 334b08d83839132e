#include "deployment/PortableBundleManager.cpp"

#include "tests/fuzz/Fuzz.h"

using Fuzz::require;

namespace Tessarine::Deployment
{

namespace
{

// The lists of libraries hold what can be copied under its own name, each once.
void requireLibraries(const QStringList &libraries, const QString &output)
{
    for (const QString &library : libraries) {
        require(library.startsWith(u'/'), "a library's path is absolute");
        require(output.contains(library), "a library's path stands in the output");
        require(!library.contains(u'\n'), "a library's path is of one line");
        require(!QFileInfo(library).fileName().contains(u'/'), "a library's name is no path");
    }
    require(QSet<QString>(libraries.cbegin(), libraries.cend()).size() == libraries.size(),
            "each library stands once in the list");
}

void readLddOutput(const QByteArray &bytes)
{
    const QString output = QString::fromLocal8Bit(bytes);
    const QStringList libraries = librariesInLddOutput(output);
    requireLibraries(libraries, output);
    require(libraries.filter(QStringLiteral("linux-vdso")).isEmpty(),
            "the kernel's virtual library is left out");
    const QString real = QStringLiteral("\n\tlibprobe.so.1 => /probe/libprobe.so.1 (0x00007f00)\n");
    require(librariesInLddOutput(output + real).contains(QStringLiteral("/probe/libprobe.so.1")),
            "a real line is found behind anything");
}

void readLdconfigOutput(const QByteArray &bytes)
{
    const QString output = QString::fromLocal8Bit(bytes);
    const QStringList libraries = libsslInLdconfigOutput(output);
    requireLibraries(libraries, output);
    require(libraries.isEmpty() || output.contains(QStringLiteral("libssl.so.")),
            "only libssl is found");
    const QString real = QStringLiteral("\n\tlibssl.so.9 (libc6,x86-64) => /probe/libssl.so.9\n");
    require(libsslInLdconfigOutput(output + real).contains(QStringLiteral("/probe/libssl.so.9")),
            "a real line is found behind anything");
}

const Fuzz::Registration registrations[] = {{"ldd", readLddOutput},
                                            {"ldconfig", readLdconfigOutput}};

} // namespace

} // namespace Tessarine::Deployment
