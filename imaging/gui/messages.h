#pragma once
// Modal message boxes of the program. A batch run must never wait for a
// click: on a display nobody looks at (the offscreen or minimal platform, or
// KESTRO_NONINTERACTIVE=1) a box prints "Title: text" on stderr instead of
// being shown. This holds in windowed mode too, so that a start-up failure
// there ends the program instead of waiting.

#include <QMessageBox>
#include <QString>

namespace kestro {

// Batch mode of the whole process; main sets it before the window exists.
void setBatchRun(bool batch);
bool isBatchRun();

// True on the offscreen or minimal platform or with KESTRO_NONINTERACTIVE=1.
bool isNonInteractiveDisplay();

// True when boxes print on stderr instead of being shown.
bool messagesGoToStderr();

// Plain text of a rich-text message: line breaks for <br>, a link as
// "text (address)", other markup dropped, entities decoded.
QString plainMessageText(const QString &richText);

// Shows a modal box with one OK button (or prints it, see above) and
// returns the button pressed (OK when printed).
QMessageBox::StandardButton showMessage(QWidget *parent, QMessageBox::Icon icon,
                                        const QString &title, const QString &text,
                                        Qt::TextFormat format = Qt::PlainText);

// A question with the buttons Yes and No; true for Yes. Where boxes print
// on stderr the question is printed and answered Yes, so an unattended run
// goes on with the action the user asked for.
bool askQuestion(QWidget *parent, const QString &title, const QString &text);

} // namespace kestro
