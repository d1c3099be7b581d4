// SPDX-License-Identifier: MIT
// The certificates of the authorities that a broker's certificate may come from. Internal.
#pragma once

#include <QtCore/QString>

#include <sys/stat.h>

struct x509_store_st;

namespace comunication {
namespace mosquittopp {

/// OpenSSL cleans up at exit(), and objects with static storage duration may live longer. Nothing that it has made may
/// be touched then, not even to free it. Watches from the first call on.
bool opensslIsGone();
/// Keeps what may not be freed any more within reach: nobody has lost it, so that leak checkers stay silent.
void keepForever(void* thing);

/// Why a file cannot be read; empty if it can.
QString unreadable(const QString& path);

/// Reads the files when they are first needed and again when they have changed: a whole system's file takes longer than
/// a turn of the event loop may. Serves all connections of one broker client.
class authorities_t {
public:
    authorities_t() = default;
    ~authorities_t();
    authorities_t(const authorities_t&) = delete;
    authorities_t& operator=(const authorities_t&) = delete;

    /// Returns 0, or 3 for a file that is missing or unreadable, or 1 for one that does not hold what it should;
    /// reason() says why.
    int load(const QString& cafile, const QString& capath);

    /// What the last load has found; null if it failed.
    x509_store_st* get() const { return store; }
    QString reason() const { return why; }

private:
    int fail(int code, const QString& text);
    void drop();

    x509_store_st* store = nullptr;
    QString file;         // that the store was read from
    struct stat stamp {}; // of that file
    QString why;
};

} // namespace mosquittopp
} // namespace comunication
