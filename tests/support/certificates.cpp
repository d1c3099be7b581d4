// SPDX-License-Identifier: MIT
#include "certificates.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>

namespace {

struct wanted_t {
    const char* name;
    const char* names;
    const char* days;
};

constexpr wanted_t wanted[] = {{"good", "DNS:localhost,IP:127.0.0.1", "-days 2"},
                               {"stranger", "DNS:panel.example", "-days 2"},
                               {"expired", "DNS:localhost,IP:127.0.0.1", "-days -1"}};

} // namespace

certificates_t::certificates_t()
{
    for (const QString& name : {QStringLiteral("ca"), QStringLiteral("other")}) {
        openssl(QStringLiteral("req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 "
                               "-subj /CN=%1 -keyout %1.key -out %1.pem")
                    .arg(name));
    }
    for (const wanted_t& one : wanted) {
        const QString name = QString::fromLatin1(one.name);
        QFile extensions(file(name + QStringLiteral(".ext")));
        valid = valid && extensions.open(QIODevice::WriteOnly);
        extensions.write(QByteArray("subjectAltName=") + one.names);
        extensions.close();
        openssl(QStringLiteral("req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=%1 "
                               "-keyout %1.key -out %1.csr")
                    .arg(name));
        openssl(QStringLiteral("x509 -req -in %1.csr -CA ca.pem -CAkey ca.key -CAcreateserial %2 -extfile %1.ext "
                               "-out %1.pem")
                    .arg(name, QString::fromLatin1(one.days)));
    }
}

bool certificates_t::openssl(const QString& arguments)
{
    QProcess process;
    process.setWorkingDirectory(directory.path());
    process.start(QStringLiteral("openssl"), arguments.split(QLatin1Char(' ')));
    if (!process.waitForFinished(10000) || process.exitCode() != 0) {
        qWarning("openssl %s: %s", qPrintable(arguments), process.readAllStandardError().constData());
        valid = false;
    }
    return valid;
}

QString certificates_t::listener(const QString& name) const
{
    return QStringLiteral(
               "listener @port 127.0.0.1\nallow_anonymous true\ncafile %1\ncertfile %2.pem\nkeyfile %2.key\n")
        .arg(authority(), file(name));
}
