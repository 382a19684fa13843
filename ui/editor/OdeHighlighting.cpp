#include "ui/editor/OdeHighlighting.h"

#include "expression/ExpressionParser.h"

#include <QSet>

#include <algorithm>

namespace {

// Stand-ins for the tags while names are marked, so that a later name can
// never match inside an earlier tag (a parameter "i" inside "<i>", "f" inside
// "<font>"). They are Unicode noncharacters, which no typed text holds.
constexpr QChar boldStart = QChar(0xFDD2);
constexpr QChar boldEnd = QChar(0xFDD3);
constexpr QChar italicStart = QChar(0xFDD4);
constexpr QChar italicEnd = QChar(0xFDD5);

// The text with any stand-in character it holds (binary pasted into the
// editor) shown as the replacement character.
QString withoutStandIns(QString text)
{
    for (QChar &c : text) {
        if (c.unicode() >= 0xFDD0 && c.unicode() <= 0xFDD5)
            c = QChar::ReplacementCharacter;
    }
    return text;
}

// Longer names first: A10 is marked whole, and A1 inside it after that, so
// a name is never marked only in part because a shorter one came first.
void markNames(QString &text, QStringList names, QChar start, QChar end, const QString &skipped)
{
    std::stable_sort(names.begin(), names.end(),
                     [](const QString &a, const QString &b) { return a.size() > b.size(); });
    for (const QString &name : qAsConst(names)) {
        if (!name.isEmpty() && name != skipped)
            text.replace(name, start + name + end);
    }
}

void appendEscaped(QString &html, QChar c)
{
    switch (c.unicode()) {
    case '&':
        html += QLatin1String("&amp;");
        break;
    case '<':
        html += QLatin1String("&lt;");
        break;
    case '>':
        html += QLatin1String("&gt;");
        break;
    default:
        html += c;
    }
}

// Keeps blanks and tabs as typed, so that positions in the plain text survive.
QString keepingBlanks(const QString &html)
{
    return QLatin1String("<span style=\"white-space:pre-wrap\">") + html + QLatin1String("</span>");
}

} // namespace

QString highlightedModelHtml(const QString &text, const QStringList &stateVariables,
                             const QStringList &parameters)
{
    QString marked = withoutStandIns(text);
    markNames(marked, stateVariables, boldStart, boldEnd, QString());
    // "b" stays plain: the markup already holds "<b>" tags, so the name would
    // be marked inside them.
    markNames(marked, parameters, italicStart, italicEnd, QStringLiteral("b"));

    QString html = QStringLiteral("<font>");
    html.reserve(marked.size() * 2);
    int greyFonts = 0; // opened on the current line
    for (const QChar c : qAsConst(marked)) {
        if (c == QLatin1Char('\n')) {
            html += QStringLiteral("</font>").repeated(qMax(1, greyFonts)) + QLatin1String("<br>");
            greyFonts = 0;
        } else if (c == QLatin1Char(';')) {
            html += QLatin1String("<font color=silver>;");
            ++greyFonts;
        } else if (c == boldStart) {
            html += QLatin1String("<b>");
        } else if (c == boldEnd) {
            html += QLatin1String("</b>");
        } else if (c == italicStart) {
            html += QLatin1String("<i>");
        } else if (c == italicEnd) {
            html += QLatin1String("</i>");
        } else {
            appendEscaped(html, c);
        }
    }
    return keepingBlanks(html);
}

QString markReplacements(const QString &text, const QString &findText, const QString &replacement)
{
    QString marked = ExpressionParser::removeBlanks(withoutStandIns(text));
    if (!findText.isEmpty())
        marked.replace(findText, replacementStart + replacement + replacementEnd);
    for (const char *op : {"+", "-", "*", "/"}) {
        const QString token = QLatin1String(op);
        marked.replace(token, QLatin1Char(' ') + token + QLatin1Char(' '));
    }
    return marked;
}

QString withoutMarks(QString marked)
{
    marked.remove(replacementStart);
    marked.remove(replacementEnd);
    return marked;
}

QString markedTextHtml(const QString &marked, const QString &colour)
{
    const QString start = QStringLiteral("<font color=%1>").arg(colour);
    QString html;
    html.reserve(marked.size() * 2);
    for (const QChar c : marked) {
        if (c == QLatin1Char('\n'))
            html += QLatin1String("<br>");
        else if (c == replacementStart)
            html += start;
        else if (c == replacementEnd)
            html += QLatin1String("</font>");
        else
            appendEscaped(html, c);
    }
    return keepingBlanks(html);
}

QString variablesHeader()
{
    return QStringLiteral("=== Variables ===");
}

QString parametersHeader()
{
    return QStringLiteral("=== Parameters ===");
}

QStringList nameListEntries(const QStringList &stateVariables, const QStringList &parameters)
{
    return QStringList{variablesHeader()} + stateVariables + QStringList{parametersHeader()} + parameters;
}

bool isNameEntry(const QString &entry)
{
    return !entry.isEmpty() && entry != variablesHeader() && entry != parametersHeader();
}

QStringList mergedNames(const QStringList &first, const QStringList &second)
{
    QStringList names = first;
    QSet<QString> seen(first.begin(), first.end());
    for (const QString &name : second) {
        if (!seen.contains(name)) {
            seen.insert(name);
            names << name;
        }
    }
    return names;
}
