// Every text the viewer shows through tr() has its English, and the
// translation file holds nothing the program no longer says. Qt's own
// extractor reads the sources (contexts, forms and all) into a scratch file,
// which is compared with the one compiled into the program.
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

namespace {

// (context, source) -> translation, and the sources marked unfinished.
struct Catalogue {
    QMap<QPair<QString, QString>, QString> messages;
    QStringList unfinished;
    bool ok = false;
};

Catalogue load(const QString& path) {
    Catalogue c;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) return c;
    QXmlStreamReader xml(&file);
    QString context, source, translation;
    bool unfinished = false;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            if (xml.name() == QLatin1String("name")) {
                context = xml.readElementText();
            } else if (xml.name() == QLatin1String("source")) {
                source = xml.readElementText();
            } else if (xml.name() == QLatin1String("translation")) {
                unfinished = xml.attributes().value("type") == QLatin1String("unfinished");
                translation = xml.readElementText();
            }
        } else if (xml.isEndElement() && xml.name() == QLatin1String("message")) {
            c.messages.insert({context, source}, translation);
            if (unfinished) c.unfinished << context + ": " + source;
            translation.clear();
            unfinished = false;
        }
    }
    c.ok = !xml.hasError();
    return c;
}

}  // namespace

class TranslationTest : public QObject {
    Q_OBJECT

private slots:
    void everyTextHasItsEnglishAndNoneIsLeftOver() {
        QTemporaryDir dir;
        const QString extracted = dir.filePath("extracted.ts");
        QProcess lupdate;
        lupdate.setWorkingDirectory(SOURCE_DIR);
        lupdate.start(LUPDATE, {"-no-obsolete", "-locations", "none", "app", "panel", "views", "dialogs",
                                "persistence", "acquisition", "-ts", extracted});
        QVERIFY(lupdate.waitForFinished(60000));
        QCOMPARE(lupdate.exitCode(), 0);

        const Catalogue found = load(extracted);
        const Catalogue ours = load(QString(SOURCE_DIR) + "/resources/language/Quorel_en.ts");
        QVERIFY(found.ok && ours.ok);
        QVERIFY(found.messages.size() > 100);

        QStringList missing, leftOver;
        for (auto it = found.messages.cbegin(); it != found.messages.cend(); ++it)
            if (ours.messages.value(it.key()).isEmpty()) missing << it.key().first + ": " + it.key().second;
        for (auto it = ours.messages.cbegin(); it != ours.messages.cend(); ++it)
            if (!found.messages.contains(it.key())) leftOver << it.key().first + ": " + it.key().second;
        QVERIFY2(missing.isEmpty(), qPrintable("no English for:\n" + missing.join('\n')));
        QVERIFY2(leftOver.isEmpty(), qPrintable("no longer in the program:\n" + leftOver.join('\n')));
        QVERIFY2(ours.unfinished.isEmpty(), qPrintable("unfinished:\n" + ours.unfinished.join('\n')));
    }
};

QTEST_GUILESS_MAIN(TranslationTest)
#include "translation_test.moc"
