// SPDX-License-Identifier: MIT
// Parsing of topics: by hand where that gives the same result, by the regular expression everywhere else.
#include <flotrofobul/define/topic_t.h>

#include <flotrofobul/define/define.h>
#include <flotrofobul/platform/logs/log_line.h>
#include <flotrofobul/platform/qt.h>

#include <QRegExp>
#include <QtCore/QStringView>

#include <array>
#include <atomic>
#include <mutex>

namespace comunication {
namespace utility {

using namespace ::utility::logs;

namespace {

constexpr const char logSource[] = "libscomunication/libmosquittoproto/define/topic_t";

const QString groupOfBridges =
    u'(' + REMOTE_PREFIX + u'|' + FORWARD_PREFIX + u'|' + CLOUD_PREFIX_1 + u'|' + CLOUD_PREFIX_2 + QStringLiteral(")?");

QString groupOf(const QString& characterClass)
{
    return QStringLiteral("/([") + characterClass + QStringLiteral("]+)");
}

QString patternWith(const QString& groupOfId)
{
    const QString& word = topic_t::admitedword;
    return u'^' + groupOfBridges + QStringLiteral("[/]?(") + LOCAL_PREFIX + u')' + groupOfId + groupOf(word) +
           groupOf(word) + QStringLiteral("/([") + word + QStringLiteral("/]+$)");
}

} // namespace

qint32 topic_t::topic_min_len = 5;
QString topic_t::admitedword = QStringLiteral("\\w-_{}\\[\\]\\(\\)\\?\\^\\$£!:.,=;@+'");
QString topic_t::installation_id;
QString topic_t::regex_allowed_topic_plain = patternWith(groupOf(INSTALLATIONID));
QString topic_t::tmp_regex_allowed_topic_plain = regex_allowed_topic_plain;

namespace {

const QString patternWithoutId = patternWith(QString());

constexpr bool isAsciiWord(ushort c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

constexpr std::array<bool, 128> admittedAscii()
{
    std::array<bool, 128> admitted{};
    for (ushort c = 0; c < 128; ++c) {
        admitted[c] = isAsciiWord(c);
    }
    for (const char c :
         {'-', '{', '}', '[', ']', '(', ')', '?', '^', '$', '!', ':', '.', ',', '=', ';', '@', '+', '\''}) {
        admitted[static_cast<unsigned char>(c)] = true;
    }
    return admitted;
}

// What parsing by hand needs of a pattern. Every thread has a copy, so that parsing takes no lock (where Qt lets it);
// it has no destructor, because topics may be parsed while a thread ends.
struct table_t {
    quint32 edition = 0;           // of the grammar
    const void* pattern = nullptr; // where the text of the pattern was
    bool plainId = false;          // in a character class the id stands for its own characters only
    std::array<bool, 128> ofId{};  // characters of a plain id
};

struct grammar_t {
    QString text;       // shared with the pattern, so that a change of that moves it elsewhere
    QRegExp expression; // decides what the parser by hand cannot
    table_t table;

    explicit grammar_t(const QString& pattern) : text(pattern), expression(pattern, Qt::CaseSensitive, QRegExp::RegExp)
    {}

    grammar_t(const QString& pattern, const QString& id) : grammar_t(pattern)
    {
        table.plainId = !id.isEmpty();
        for (const QChar c : id) {
            if (!isAsciiWord(c.unicode())) {
                table.plainId = false;
                return;
            }
            table.ofId[c.unicode()] = true;
        }
    }
};

std::mutex grammarMutex; // also for the public texts, as far as they are changed here
grammar_t grammar(topic_t::tmp_regex_allowed_topic_plain);
std::atomic<quint32> edition{1};
thread_local table_t ownTable;

// Hosts may set a pattern of their own, so every parse looks where its text is. Not at the text itself, which another
// thread may be about to replace.
const void* whereThePatternIs()
{
    return qt::placeOf(topic_t::tmp_regex_allowed_topic_plain);
}

void bringTableAlong()
{
    std::unique_lock<std::mutex> lock(grammarMutex, std::defer_lock);
    if (!qt::textIsOneWord) {
        lock.lock();
    }
    if (ownTable.edition == edition.load(std::memory_order_acquire) && ownTable.pattern == whereThePatternIs()) {
        return;
    }
    if (!lock) {
        lock.lock();
    }
    if (qt::placeOf(grammar.text) != whereThePatternIs()) { // somebody has set a pattern of his own
        grammar = grammar_t(topic_t::tmp_regex_allowed_topic_plain);
        ++edition;
    }
    ownTable = grammar.table;
    ownTable.edition = edition;
    ownTable.pattern = whereThePatternIs();
}

// A copy, because matching stores the captures in it.
QRegExp currentExpression()
{
    const std::lock_guard<std::mutex> lock(grammarMutex);
    return grammar.expression;
}

const QString shippedTemplate = topic_t::regex_allowed_topic_plain;

constexpr int groupsByHand = 6;

// Number of leading characters of the text that belong to the class.
int runOf(const std::array<bool, 128>& characterClass, QStringView text)
{
    int length = 0;
    while (length < text.size() && characterClass[text[length].unicode()]) {
        ++length;
    }
    return length;
}

// Moves a level out of the text and drops the "/" behind it; false if either is missing.
bool takeLevel(const std::array<bool, 128>& characterClass, QStringView& text, QStringView& level)
{
    const int length = runOf(characterClass, text);
    if (length == 0 || length == text.size() || text[length] != u'/') {
        return false;
    }
    level = text.left(length);
    text = text.mid(length + 1);
    return true;
}

} // namespace

void topic_t::setInstallationid(const QString& id)
{
    QString pattern = regex_allowed_topic_plain;
    pattern.replace(INSTALLATIONID, id);
    const std::lock_guard<std::mutex> lock(grammarMutex);
    if (installation_id == id && tmp_regex_allowed_topic_plain == pattern) {
        return; // so that nothing changes under those who read the public texts
    }
    installation_id = id;
    // The parser by hand knows no template but the one above.
    grammar = regex_allowed_topic_plain == shippedTemplate ? grammar_t(pattern, id) : grammar_t(pattern);
    qt::replaceText(tmp_regex_allowed_topic_plain, std::move(pattern));
    ++edition;
}

topic_t::topic_t(const QString& topic, bool* ok) : original(topic), pattern(patternWithoutId)
{
    bringTableAlong();
    verdict_t result = parseByHand();
    if (result == verdict_t::unknown) {
        result = parseByExpression();
    }
    *ok = result == verdict_t::matches;
    if (result == verdict_t::differs) {
        // The line number is fixed: log readers know it.
        FLOTROFOBUL_LOG_AT(error, "Unknown topic not processing messsage: "_l1 + topic, "topic_t", logSource, 67);
    }
}

// Six times faster than the expression. Handles ASCII topics when the id consists of letters, digits and "_". Only the
// expression knows which characters beyond ASCII count as word characters, and how other ids change its character
// classes.
topic_t::verdict_t topic_t::parseByHand()
{
    static constexpr std::array<bool, 128> admitted = admittedAscii();

    if (!ownTable.plainId || topic_min_len > groupsByHand) {
        return verdict_t::unknown;
    }
    QStringView rest(original);
    for (const QChar c : rest) {
        if (c.unicode() >= 128) {
            return verdict_t::unknown;
        }
    }
    QString bridge;
    for (const QString* const name : {&REMOTE_PREFIX, &FORWARD_PREFIX, &CLOUD_PREFIX_1, &CLOUD_PREFIX_2}) {
        if (rest.startsWith(*name)) {
            bridge = *name;
            rest = rest.mid(name->size());
            break;
        }
    }
    if (rest.startsWith(u'/')) {
        rest = rest.mid(1);
    }
    if (!rest.startsWith(LOCAL_PREFIX) || rest.size() == LOCAL_PREFIX.size() || rest[LOCAL_PREFIX.size()] != u'/') {
        return verdict_t::differs;
    }
    rest = rest.mid(LOCAL_PREFIX.size() + 1);
    QStringView ofPlain;
    QStringView ofSender;
    QStringView ofDestination;
    if (!takeLevel(ownTable.ofId, rest, ofPlain) || !takeLevel(admitted, rest, ofSender) ||
        !takeLevel(admitted, rest, ofDestination) || rest.isEmpty()) {
        return verdict_t::differs;
    }
    for (const QChar c : rest) {
        if (c != u'/' && !admitted[c.unicode()]) {
            return verdict_t::differs;
        }
    }
    origin = bridge;
    local = LOCAL_PREFIX;
    plain = ofPlain.toString();
    sender = ofSender.toString();
    destination = ofDestination.toString();
    value = rest.toString();
    return verdict_t::matches;
}

topic_t::verdict_t topic_t::parseByExpression()
{
    QRegExp expression = currentExpression();
    if (!expression.exactMatch(original)) {
        return verdict_t::differs;
    }
    if (expression.captureCount() < topic_min_len) {
        return verdict_t::unknown;
    }
    origin = expression.cap(1);
    int next = 2;
    if (expression.cap(2) == LOCAL_PREFIX) {
        local = expression.cap(2);
        next = 3;
    }
    plain = expression.cap(next);
    sender = expression.cap(next + 1);
    destination = expression.cap(next + 2);
    value = expression.cap(next + 3);
    return verdict_t::matches;
}

} // namespace utility
} // namespace comunication
