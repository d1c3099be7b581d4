// SPDX-License-Identifier: MIT
// Certificates for one test program, made by the openssl command.
#pragma once

#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

/// Files: the authority "ca" and certificates of it with their keys (.key): "good" for localhost
/// and 127.0.0.1, "stranger" for panel.example, "expired" for localhost until yesterday; "half" is none.
class certificates_t {
public:
    certificates_t()
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(directory.path());
        process.start(QStringLiteral("sh"), {QStringLiteral("-ec"), QString::fromLatin1(script)});
        if (!process.waitForFinished(20000) || process.exitCode() != 0) {
            qFatal("openssl said:\n%s", process.readAll().constData());
        }
    }

    QString file(const QString& name) const { return name.isEmpty() ? name : directory.filePath(name); }
    /// Listener lines of mosquitto with one of the certificates.
    QString listener(const QString& name) const
    {
        const QString lines =
            QStringLiteral("listener @port 127.0.0.1\nallow_anonymous true\ncafile %1\ncertfile %2\nkeyfile %2.key\n");
        return lines.arg(file(QStringLiteral("ca")), file(name));
    }

private:
    static constexpr char script[] = R"(
request() { openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=$1 -keyout $1.key $2; }
sign() {
    echo subjectAltName=$2 >$1.ext
    request $1 "-out $1.csr"
    openssl x509 -req -in $1.csr -CA ca -CAkey ca.key -CAcreateserial -extfile $1.ext -days $3 -out $1
}
request ca "-x509 -days 2 -out ca"
sign good DNS:localhost,IP:127.0.0.1 2
sign stranger DNS:panel.example 2
sign expired DNS:localhost,IP:127.0.0.1 -1
head -c 200 ca >half
)";
    QTemporaryDir directory;
};
