// The yardstick for the share form's start: the least a Qt Widgets program
// does to show a comparable form (a text field, a list picker and two
// buttons in a dialog), draw it into a PNG file and quit. Nothing is read
// from a store.
//
//   minimal_qt_form OUT.png
#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QLineEdit>
#include <QTimer>
#include <QVBoxLayout>

int main(int argc, char** argv) {
    if (argc != 2)
        return 64;
    QApplication application(argc, argv);
    QDialog window;
    auto* layout = new QVBoxLayout(&window);
    layout->addWidget(new QLineEdit(QStringLiteral("https://example.org")));
    auto* lists = new QComboBox;
    lists->addItems({QStringLiteral("Inbox"), QStringLiteral("Work"), QStringLiteral("Home")});
    layout->addWidget(lists);
    layout->addWidget(new QDialogButtonBox(QDialogButtonBox::Cancel | QDialogButtonBox::Save));
    window.show();
    const QString out = QString::fromLocal8Bit(argv[1]);
    QTimer::singleShot(0, &window, [&] {
        const bool saved = window.grab().save(out, "PNG");
        QApplication::exit(saved ? 0 : 74);
    });
    return QApplication::exec();
}
