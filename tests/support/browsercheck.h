#pragma once
// Reports opened in a real browser engine. Test programs that link
// kestro_testsupport_browser get KESTRO_TEST_WEBENGINE defined when the
// engine is there to use.

#include <QList>
#include <QString>

namespace kestro::test {

// The natural width of every picture of an HTML file once the browser engine
// has loaded it (0 for a picture that did not load); empty when the page did
// not load or the tests were built without the engine.
QList<int> pictureWidths(const QString &path);

} // namespace kestro::test
