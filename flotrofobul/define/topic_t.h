// SPDX-License-Identifier: MIT
// The topic grammar: what a topic of the system is made of.
#pragma once

#include <flotrofobul/define/types.h>

#include <QtCore/QString>

namespace comunication {
namespace utility {

/// A topic of the system, taken apart:
///
///     [bridge/]local/<installation id>/<sender>/<destination>/<value, any number of levels>
///
/// A value made for one message. The installation id is shared by all engines of the process and is
/// set by the constructor of an engine, before anything is parsed; it is not protected by a lock.
///
/// The installation id stands inside a character class of the grammar, so its level matches any run of
/// the id's characters (4321 and 11 with the id 1234). With an empty id the class swallows what
/// follows it and no topic is recognised as one of the system: always set an id.
class FLOTROFOBUL_EXPORT topic_t {
public:
    static qint32 topic_min_len;                  ///< least number of levels of a topic, and of capture groups
    static QString admitedword;                   ///< body of the class of admitted characters
    static QString installation_id;               ///< as given to setInstallationid()
    static QString regex_allowed_topic_plain;     ///< pattern with the placeholder of the installation id
    static QString tmp_regex_allowed_topic_plain; ///< pattern that parsing uses, in the syntax of QRegExp

    /// Sets the installation id for every topic parsed from now on.
    static void setInstallationid(const QString& id);
    static int getTopic_min_len() { return topic_min_len; }
    static QString getAdmitedword() { return admitedword; }

    /// Parses a topic. Writes to *ok, which must not be null, whether it is one of the system; if not, one
    /// line is logged at level 2 and every part but the original stays empty.
    topic_t(const QString& topic, bool* ok);

    QString getOrigin() const { return origin; }           ///< bridge name, or empty
    QString getLocal() const { return local; }             ///< "local"
    QString getPlain() const { return plain; }             ///< installation id level
    QString getSender() const { return sender; }           ///< client id of the publishing node
    QString getDestination() const { return destination; } ///< whom it is for
    QString getValue() const { return value; }             ///< all levels after the destination
    QString getOriginal() const { return original; }       ///< the whole topic as received

private:
    enum class verdict_t { matches, differs, unknown };
    [[nodiscard]] verdict_t parseByHand();
    [[nodiscard]] verdict_t parseByExpression();

    QString origin;
    QString local;
    QString plain;
    QString sender;
    QString destination;
    QString value;
    QString original;
    QString pattern; ///< kept with the topic, never matched against; it has no group for the installation id
};

} // namespace utility
} // namespace comunication
