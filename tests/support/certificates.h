// SPDX-License-Identifier: MIT
// Certificates for one test, made by the openssl command.
#pragma once

#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

class certificates_t {
public:
    /// Makes two authorities, "ca" and "other", and certificates of the first: "good" for localhost and
    /// 127.0.0.1, "stranger" for panel.example, "expired" for localhost until yesterday.
    certificates_t();

    bool isValid() const { return valid; }
    QString file(const QString& name) const { return directory.filePath(name); }
    QString authority() const { return file(QStringLiteral("ca.pem")); }
    /// Listener lines of mosquitto with one of the certificates.
    QString listener(const QString& name) const;

private:
    bool openssl(const QString& arguments);

    QTemporaryDir directory;
    bool valid = true;
};
