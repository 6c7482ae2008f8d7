#include "imaging/gui/messages.h"

#include <QGuiApplication>
#include <QRegularExpression>
#include <cstdio>

namespace kestro {

namespace {
bool g_batchRun = false;
}

void setBatchRun(bool batch)
{
    g_batchRun = batch;
}

bool isBatchRun()
{
    return g_batchRun;
}

bool isNonInteractiveDisplay()
{
    if (qEnvironmentVariable("KESTRO_NONINTERACTIVE") == QLatin1String("1"))
        return true;
    const QString platform = QGuiApplication::platformName();
    return platform == QLatin1String("offscreen") || platform == QLatin1String("minimal");
}

bool messagesGoToStderr()
{
    // Batch runs are the reason for this, but a windowed start on a display
    // nobody looks at (a test station, a test) must not wait for a click
    // either, so the display decides.
    return isNonInteractiveDisplay();
}

QString plainMessageText(const QString &richText)
{
    QString text = richText;
    text.replace(QRegularExpression(QStringLiteral("<br\\s*/?>"),
                                    QRegularExpression::CaseInsensitiveOption),
                 QStringLiteral("\n"));
    static const QRegularExpression
            anchor(QStringLiteral("<a\\s+[^>]*href\\s*=\\s*[\"']([^\"']*)[\"'][^>]*>(.*?)</a>"),
                   QRegularExpression::CaseInsensitiveOption
                           | QRegularExpression::DotMatchesEverythingOption);
    text.replace(anchor, QStringLiteral("\\2 (\\1)"));
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    text.remove(tag);
    text.replace(QLatin1String("&lt;"), QLatin1String("<"));
    text.replace(QLatin1String("&gt;"), QLatin1String(">"));
    text.replace(QLatin1String("&quot;"), QLatin1String("\""));
    text.replace(QLatin1String("&nbsp;"), QLatin1String(" "));
    text.replace(QLatin1String("&amp;"), QLatin1String("&"));
    return text;
}

QMessageBox::StandardButton showMessage(QWidget *parent, QMessageBox::Icon icon,
                                        const QString &title, const QString &text,
                                        Qt::TextFormat format)
{
    if (messagesGoToStderr()) {
        const QString shown = format == Qt::RichText ? plainMessageText(text) : text;
        const QByteArray line = (title + QLatin1String(": ") + shown).toLocal8Bit();
        std::fflush(stdout);
        std::fprintf(stderr, "%s\n", line.constData());
        std::fflush(stderr);
        return QMessageBox::Ok;
    }
    QMessageBox box(icon, title, text, QMessageBox::Ok, parent);
    box.setTextFormat(format);
    if (format == Qt::RichText)
        box.setTextInteractionFlags(Qt::TextBrowserInteraction);
    return static_cast<QMessageBox::StandardButton>(box.exec());
}

bool askQuestion(QWidget *parent, const QString &title, const QString &text)
{
    if (messagesGoToStderr()) {
        showMessage(parent, QMessageBox::Question, title, text);
        return true;
    }
    return QMessageBox::question(parent, title, text, QMessageBox::Yes | QMessageBox::No)
           == QMessageBox::Yes;
}

} // namespace kestro
