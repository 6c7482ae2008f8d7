// kestro-measure regions ROIFILE: the rectangles of an ROI file as read,
// before any rounding.

#include "command.h"
#include "json.h"

#include "imaging/roifile.h"

#include <QFileInfo>

namespace {

int runRegions(const QStringList &args)
{
    using namespace kestro::measure;
    if (args.size() != 1)
        return usageError("regions");
    const QString path = args.first();
    const QFileInfo info(path);
    if (!info.exists())
        return fail(QStringLiteral("cannot open ROI file %1: no such file").arg(path));
    if (!info.isFile() || !info.isReadable())
        return fail(QStringLiteral("cannot read ROI file %1").arg(path));
    const kestro::RoiReadResult result = kestro::readRoiFile(path);
    if (!result.ok && !result.error.isEmpty())
        return fail(result.error);
    kestro::JsonWriter json;
    json.beginObject().key("regions").beginArray();
    for (const QRectF &r : result.rects)
        json.numbers({r.x(), r.y(), r.width(), r.height()});
    json.endArray().endObject();
    printJson(json.text());
    return 0;
}

} // namespace

KESTRO_MEASURE_COMMAND("regions", "ROIFILE", runRegions);
