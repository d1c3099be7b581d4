// SPDX-License-Identifier: MIT
#include <flotrofobul/platform/mosquittopp/authorities.h>

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <mosquitto.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include <atomic>
#include <tuple>
#include <vector>

namespace comunication {
namespace mosquittopp {

namespace {

auto identityOf(const struct stat& file)
{
    return std::make_tuple(file.st_dev, file.st_ino, file.st_size, file.st_mtim.tv_sec, file.st_mtim.tv_nsec,
                           file.st_ctim.tv_sec, file.st_ctim.tv_nsec);
}

std::atomic<bool> gone{false};

} // namespace

bool opensslIsGone()
{
    static const int watched = OPENSSL_atexit([] { gone = true; });
    Q_UNUSED(watched)
    return gone;
}

void keepForever(void* thing)
{
    static auto* const things = new std::vector<void*>;
    things->push_back(thing);
}

QString unreadable(const QString& path)
{
    const QFileInfo file(path);
    if (!file.exists()) {
        return QStringLiteral("TLS: the file %1 does not exist").arg(path);
    }
    return file.isReadable() ? QString() : QStringLiteral("TLS: the file %1 may not be read").arg(path);
}

authorities_t::~authorities_t()
{
    drop();
}

void authorities_t::drop()
{
    if (opensslIsGone()) {
        keepForever(store);
    } else {
        X509_STORE_free(store);
    }
    store = nullptr;
}

int authorities_t::fail(int code, const QString& text)
{
    drop();
    why = text;
    ERR_clear_error();
    return code;
}

int authorities_t::load(const QString& cafile, const QString& capath)
{
    why.clear();
    if (cafile.isEmpty() && capath.isEmpty()) {
        return fail(MOSQ_ERR_INVAL, QStringLiteral("TLS: no file with the certificate of an authority is configured"));
    }
    for (const QString& path : {cafile, capath}) {
        const QString problem = path.isEmpty() ? QString() : unreadable(path);
        if (!problem.isEmpty()) {
            return fail(MOSQ_ERR_INVAL, problem);
        }
    }
    struct stat found {};
    if (!cafile.isEmpty() && ::stat(QFile::encodeName(cafile).constData(), &found) == 0 && S_ISDIR(found.st_mode)) {
        return fail(MOSQ_ERR_NOMEM, QStringLiteral("TLS: %1 is a directory, not a file").arg(cafile));
    }
    // What OpenSSL finds in a directory stays in the store, also when the file is gone or another. So a store with a
    // directory serves one connection; that is cheap, because files are read there only as they are needed.
    if (store != nullptr && capath.isEmpty() && file == cafile && identityOf(found) == identityOf(stamp)) {
        return MOSQ_ERR_SUCCESS;
    }
    drop();
    store = X509_STORE_new();
    // Noted before reading, so that a change meanwhile is noticed next time.
    file = capath.isEmpty() ? cafile : QString();
    stamp = found;
    const QByteArray path = QFile::encodeName(cafile);
    if (store == nullptr || (!path.isEmpty() && X509_STORE_load_locations(store, path.constData(), nullptr) != 1)) {
        return fail(MOSQ_ERR_NOMEM, QStringLiteral("TLS: the file %1 holds no whole certificate").arg(cafile));
    }
    if (!capath.isEmpty()) {
        X509_STORE_load_locations(store, nullptr, QFile::encodeName(capath).constData());
    }
    return MOSQ_ERR_SUCCESS;
}

} // namespace mosquittopp
} // namespace comunication
