// Dolphin's plug-ins without Dolphin and without a display.

#include "tests/file-managers/AheadOfOthers.h"
#include "tests/file-managers/LoadedDolphinPlugins.h"

#include <QApplication>
#include <QDBusInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

const QLatin1String busName(FINDER_SYNC_GROUP ".FinderSync");
const QStringList badged = {QStringLiteral("emblem-" FINDER_SYNC_GROUP ".FolderIco")};
const QStringList bare;
constexpr int leastWait = 100; // milliseconds

QDir scratch() {
    static const QTemporaryDir directory;
    return QDir(directory.path());
}

QUrl sync() {
    return QUrl(QStringLiteral("file:///sync"));
}

QUrl inSync(const QString& name) {
    return QUrl::fromLocalFile(QStringLiteral("/sync/") + name);
}

bool runUntil(const std::function<bool()>& condition) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > 10000)
            return false;
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCoreApplication::processEvents();
        QThread::usleep(500);
    }
    return true;
}

void runFor(int milliseconds) {
    QElapsedTimer clock;
    clock.start();
    (void)runUntil([&] { return clock.elapsed() > milliseconds; });
}

/// The scripted extension's process. What it says is read line by line.
class ExtensionProcess {
public:
    explicit ExtensionProcess(const QStringList& arguments) {
        process_.start(QStringLiteral(FINDER_SYNC_SCRIPTED_EXTENSION), arguments);
        if (!process_.waitForStarted())
            throw std::runtime_error(process_.errorString().toStdString());
    }
    ~ExtensionProcess() { end(); }
    ExtensionProcess(const ExtensionProcess&) = delete;
    ExtensionProcess& operator=(const ExtensionProcess&) = delete;

    void signal(int number) { (void)::kill(static_cast<pid_t>(process_.processId()), number); }

    void end() {
        process_.kill();
        process_.waitForFinished();
    }

    /// Everything that it has said so far.
    const std::string& said() {
        said_ += process_.readAllStandardOutput().toStdString();
        return said_;
    }

    bool says(const std::string& line) {
        return runUntil([&] { return said().find(line + "\n") != std::string::npos; });
    }

    /// How many items it has been asked about.
    int asked() {
        int count = 0;
        for (const QString& line : QString::fromStdString(said()).split(QLatin1Char('\n')))
            if (line.startsWith(QLatin1String("badges ")))
                count += line.midRef(7).toInt();
        return count;
    }

private:
    QProcess process_;
    std::string said_;
};

/// What is there for the bus to start: a program that leaves a line behind and fails.
class ActivatableExtension {
public:
    ActivatableExtension() {
        QFile service(file_);
        if (!service.open(QFile::WriteOnly))
            throw std::runtime_error(service.errorString().toStdString());
        service.write("[D-BUS Service]\nName=" + QByteArray(busName.data()) +
                      "\nExec=/bin/sh -c 'echo >>" + starts_.toUtf8() + "; exit 1'\n");
        service.close();
        reload();
    }
    ~ActivatableExtension() {
        QFile::remove(file_);
        QFile::remove(starts_);
        reload();
    }
    ActivatableExtension(const ActivatableExtension&) = delete;
    ActivatableExtension& operator=(const ActivatableExtension&) = delete;

    [[nodiscard]] qint64 starts() const { return QFile(starts_).size(); }

private:
    static void reload() {
        QDBusInterface bus(QStringLiteral("org.freedesktop.DBus"),
                           QStringLiteral("/org/freedesktop/DBus"),
                           QStringLiteral("org.freedesktop.DBus"));
        (void)bus.call(QStringLiteral("ReloadConfig"));
    }

    QString file_ = scratch().filePath(QStringLiteral("share/dbus-1/services/extension.service"));
    QString starts_ = scratch().filePath(QStringLiteral("starts"));
};

/// A bus of the test's own, with nothing to start but what a test puts there.
class Bus {
public:
    Bus() {
        process_.start(QStringLiteral("dbus-daemon"),
                       {QStringLiteral("--session"), QStringLiteral("--print-address"),
                        QStringLiteral("--nofork"), QStringLiteral("--nopidfile")});
        if (!process_.waitForReadyRead())
            throw std::runtime_error("dbus-daemon: " + process_.errorString().toStdString());
        qputenv("DBUS_SESSION_BUS_ADDRESS", process_.readLine().trimmed());
    }
    ~Bus() {
        process_.terminate();
        process_.waitForFinished();
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    void signal(int number) { (void)::kill(static_cast<pid_t>(process_.processId()), number); }

private:
    QProcess process_;
};

std::unique_ptr<Bus> bus;

class DolphinPlugins : public testing::Test, protected LoadedDolphinPlugins {
protected:
    bool shows(const QUrl& url, const QStringList& expected) {
        return runUntil([&] { return overlays(url) == expected; });
    }

    /// Runs until both plug-ins know the extension: the badge comes after all that they ask first.
    void showBadge() {
        show(sync());
        ASSERT_TRUE(shows(sync(), badged));
    }
};

TEST_F(DolphinPlugins, AreForFilesAndFolders) {
    const QStringList types = pluginOfKind("kfileitemaction").mimeTypes();
    EXPECT_TRUE(types.contains(QStringLiteral("application/octet-stream")));
    EXPECT_TRUE(types.contains(QStringLiteral("inode/directory")));
}

TEST_F(DolphinPlugins, BadgeARootFolderAndNothingElse) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    show(sync());
    show(inSync(QStringLiteral("a")));
    EXPECT_EQ(overlays(sync()), bare) << "nothing is known yet, and nothing waits";
    EXPECT_TRUE(shows(sync(), badged));
    EXPECT_EQ(overlays(inSync(QStringLiteral("a"))), bare);
    EXPECT_EQ(changes(inSync(QStringLiteral("a"))), 0);
}

// Played by tests/faults, too, while calls fail, so no badge and no entry is demanded.
TEST_F(DolphinPlugins, OutliveASession) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    show(sync());
    QElapsedTimer clock;
    clock.start();
    (void)runUntil([&] { return overlays(sync()) == badged || clock.elapsed() > 300; });
    (void)menu({inSync(QStringLiteral("a b"))});
    EXPECT_LT(menuTook(), 500);
    if (!actions().isEmpty())
        actions().front()->trigger();
    runFor(50);
    extension.end();
    runFor(50);
    EXPECT_EQ(menu({sync()}), QStringList());
    runFor(50);
}

TEST_F(DolphinPlugins, FollowTheRootFolders) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    const QUrl other(QStringLiteral("file:///other"));
    show(other);
    showBadge();
    QDBusInterface properties(busName, QStringLiteral("/FinderSync"),
                              QStringLiteral("org.freedesktop.DBus.Properties"));
    const auto setRoots = [&](const QStringList& paths) {
        const QDBusMessage reply = properties.call(
            QStringLiteral("Set"), QStringLiteral("findersync.Extension1"),
            QStringLiteral("pathsOfRootFolders"), QVariant::fromValue(QDBusVariant(paths)));
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
    };
    setRoots({QStringLiteral("/other")});
    EXPECT_TRUE(shows(other, badged));
    EXPECT_TRUE(shows(sync(), bare));
}

TEST_F(DolphinPlugins, AskInBatches) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    for (int index = 0; index < 2500; ++index)
        show(inSync(QString::number(index)));
    EXPECT_TRUE(extension.says("badges 1\nbadges 1000\nbadges 1000\nbadges 500"))
        << extension.said();
}

TEST_F(DolphinPlugins, AskAboutAnItemOnce) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    show(sync());
    runFor(50);
    EXPECT_EQ(overlays(sync()), badged);
    EXPECT_EQ(extension.asked(), 1);
}

TEST_F(DolphinPlugins, LeaveAloneWhatIsNoFileHere) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    for (const char* url :
         {"trash:///sync", "file:///sync/%ff", "file:///sync/%ED%A0%80", "file:///sync/%00",
          "file://elsewhere/sync", "file:///sync?query", "file:///sync#fragment"}) {
        show(QUrl(QLatin1String(url)));
        EXPECT_EQ(menu({QUrl(QLatin1String(url))}), QStringList());
    }
    showBadge();
    show(inSync(QStringLiteral("a")));
    EXPECT_TRUE(runUntil([&] { return extension.asked() == 2; }));
    EXPECT_EQ(menu({sync(), QUrl(QStringLiteral("file:///sync/%ff"))}), QStringList());
    EXPECT_EQ(extension.said().find("menu"), std::string::npos) << extension.said();
}

TEST_F(DolphinPlugins, EncodeWhatMayNotStandInAURL) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    (void)menu({inSync(QStringLiteral("[1] a?b#c%d\u00e9&+"))});
    EXPECT_TRUE(extension.says("menu file:///sync/%5B1%5D%20a%3Fb%23c%25d%C3%A9&+"))
        << extension.said();
}

TEST_F(DolphinPlugins, TakeTheBadgeAwayWhenTheExtensionEndsAndAskAgainWhenItIsBack) {
    auto extension = std::make_unique<ExtensionProcess>(QStringList{QStringLiteral("/sync")});
    showBadge();
    extension.reset();
    EXPECT_TRUE(shows(sync(), bare));
    ExtensionProcess again({QStringLiteral("/sync")});
    EXPECT_TRUE(shows(sync(), badged));
}

TEST_F(DolphinPlugins, AskTheNextExtensionWhatTheOneBeforeHasLeftOpen) {
    auto extension = std::make_unique<ExtensionProcess>(QStringList{QStringLiteral("/sync")});
    showBadge();
    extension->signal(SIGSTOP);
    const QUrl other(QStringLiteral("file:///other"));
    show(other);
    runFor(50);
    extension.reset();
    EXPECT_TRUE(shows(sync(), bare));
    ExtensionProcess again({QStringLiteral("/sync"), QStringLiteral("/other")});
    EXPECT_TRUE(shows(sync(), badged));
    EXPECT_TRUE(shows(other, badged));
}

TEST_F(DolphinPlugins, GetTheAnswerOfAHungExtensionWhenItGoesOn) {
    ExtensionProcess extension({QStringLiteral("/sync"), QStringLiteral("/other")});
    showBadge();
    extension.signal(SIGSTOP);
    const QUrl other(QStringLiteral("file:///other"));
    QElapsedTimer clock;
    clock.start();
    show(other);
    EXPECT_LT(clock.elapsed(), 50);
    runFor(300);
    EXPECT_EQ(overlays(other), bare);
    extension.signal(SIGCONT);
    EXPECT_TRUE(shows(other, badged));
}

TEST_F(DolphinPlugins, RememberBadgesAndABoundedNumberOfOtherItems) {
    auto extension = std::make_unique<ExtensionProcess>(QStringList{QStringLiteral("/sync")});
    showBadge();
    for (int index = 0; index < 30000; ++index)
        show(inSync(QString::number(index)));
    EXPECT_TRUE(runUntil([&] { return extension->asked() >= 20000; }));
    extension.reset();
    EXPECT_TRUE(shows(sync(), bare));
    ExtensionProcess again({QStringLiteral("/sync")});
    EXPECT_TRUE(runUntil([&] { return again.asked() == 20000; })) << again.asked();
    runFor(100);
    EXPECT_EQ(again.asked(), 20000);
    EXPECT_EQ(overlays(sync()), badged) << "it was shown first, and is not forgotten";
}

TEST_F(DolphinPlugins, OfferTheEntriesAndTellWhatIsPicked) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    const QUrl file = inSync(QStringLiteral("a b"));
    for (int times = 0; times < 2; ++times)
        ASSERT_EQ(menu({file}), QStringList{QStringLiteral("Copy _link && go")});
    EXPECT_EQ(actions().front()->icon().name(), QStringLiteral(FINDER_SYNC_GROUP ".icon_URLlink"));
    EXPECT_EQ(actions().front()->parent()->findChildren<QAction*>().size(), 1)
        << "the entries of the menu before are gone";
    actions().front()->trigger();
    EXPECT_TRUE(extension.says("action createLinkClicked: file:///sync/a%20b")) << extension.said();
}

TEST_F(DolphinPlugins, OfferTheEntriesInTheFirstMenu) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    const auto plugin = newMenuPlugin(); // its answers have not come yet
    const KFileItemListProperties selection(
        {KFileItem(sync(), QStringLiteral("inode/directory"), S_IFDIR)});
    EXPECT_EQ(plugin->actions(selection, nullptr).size(), 1);
}

TEST_F(DolphinPlugins, WaitInTheFirstMenuForAHungBusAsLongAsForAHungExtension) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    const KFileItemListProperties selection(
        {KFileItem(sync(), QStringLiteral("inode/directory"), S_IFDIR)});
    bus->signal(SIGSTOP);
    const auto plugin = newMenuPlugin();
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(plugin->actions(selection, nullptr).isEmpty());
    EXPECT_GE(clock.restart(), leastWait);
    EXPECT_TRUE(plugin->actions(selection, nullptr).isEmpty());
    EXPECT_LT(clock.elapsed(), 60) << "one such wait";
    bus->signal(SIGCONT);
    EXPECT_TRUE(runUntil([&] { return plugin->actions(selection, nullptr).size() == 1; }))
        << "the answer has come";
}

TEST_F(DolphinPlugins, WaitForAMenuATenthOfASecondAtTheMost) {
    ExtensionProcess slow(
        {QStringLiteral("--delay"), QStringLiteral("90"), QStringLiteral("/sync")});
    showBadge();
    EXPECT_EQ(menu({sync()}).size(), 1) << "within the time";
    EXPECT_GE(menuTook(), 90);
}

TEST_F(DolphinPlugins, GoWithoutEntriesWhenTheExtensionIsSlowAndThenLeaveItAlone) {
    ExtensionProcess slow(
        {QStringLiteral("--delay"), QStringLiteral("1000"), QStringLiteral("/sync")});
    showBadge();
    EXPECT_EQ(menu({sync()}), QStringList());
    EXPECT_GE(menuTook(), leastWait);
    EXPECT_LT(menuTook(), 250);
    EXPECT_EQ(menu({sync()}), QStringList());
    EXPECT_LT(menuTook(), 60) << "one such wait in five seconds";
}

TEST_F(DolphinPlugins, AskForAMenuAgainAfterFiveSecondsOrARestart) {
    ExtensionProcess extension({QStringLiteral("/sync")});
    showBadge();
    extension.signal(SIGSTOP);
    EXPECT_EQ(menu({sync()}), QStringList());
    EXPECT_GE(menuTook(), leastWait);
    extension.signal(SIGCONT);
    EXPECT_EQ(menu({sync()}), QStringList());
    runFor(5000);
    EXPECT_EQ(menu({sync()}).size(), 1);
    extension.signal(SIGSTOP);
    EXPECT_EQ(menu({sync()}), QStringList());
    extension.end();
    EXPECT_TRUE(shows(sync(), bare));
    ExtensionProcess again({QStringLiteral("/sync")});
    EXPECT_TRUE(shows(sync(), badged));
    EXPECT_EQ(menu({sync()}).size(), 1) << "another process has done nothing wrong";
}

TEST_F(DolphinPlugins, HaveNothingToWaitForWithoutAnExtension) {
    show(sync());
    EXPECT_EQ(menu({sync()}), QStringList());
    EXPECT_LT(menuTook(), 60);
    runFor(50);
    EXPECT_EQ(overlays(sync()), bare);
}

TEST_F(DolphinPlugins, StartTheExtensionOnceASecondAtTheMost) {
    const ActivatableExtension extension;
    show(sync());
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 1; }));
    show(sync());
    show(inSync(QStringLiteral("a")));
    runFor(500);
    EXPECT_EQ(extension.starts(), 1);
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 2; })) << "later, and not never";
    runFor(1200);
    EXPECT_EQ(extension.starts(), 2) << "only when somebody asks";
}

TEST_F(DolphinPlugins, StartTheExtensionForAMenu) {
    const ActivatableExtension extension;
    EXPECT_EQ(menu({sync()}), QStringList());
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 1; }));
}

TEST_F(DolphinPlugins, LeaveAnExtensionThatHasEndedUntilSomethingIsShown) {
    ExtensionProcess process({QStringLiteral("/sync")});
    showBadge();
    const ActivatableExtension extension;
    process.end();
    EXPECT_TRUE(shows(sync(), bare));
    runFor(1200);
    EXPECT_EQ(extension.starts(), 0);
    show(sync());
    EXPECT_TRUE(runUntil([&] { return extension.starts() == 1; }));
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    runAheadOfOthers();
    for (const char* folder : {"share/dbus-1/services", "none", "config", "cache", "run"})
        scratch().mkpath(QLatin1String(folder));
    QFile::setPermissions(scratch().filePath(QStringLiteral("run")),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const auto put = [](const char* variable, const char* folder) {
        qputenv(variable, scratch().filePath(QLatin1String(folder)).toUtf8());
    };
    put("HOME", "none");
    put("XDG_DATA_HOME", "share");
    put("XDG_DATA_DIRS", "none");
    put("XDG_CONFIG_HOME", "config");
    put("XDG_CACHE_HOME", "cache");
    put("XDG_RUNTIME_DIR", "run");
    qputenv("QT_QPA_PLATFORM", "minimal");
    qputenv("QT_PLUGIN_PATH", FINDER_SYNC_PLUGINS);
    bus = std::make_unique<Bus>();
    const QApplication application(argc, argv);
    QIcon::setThemeSearchPaths(
        {QStringLiteral(FINDER_SYNC_ICONS), QStringLiteral("/usr/share/icons")});
    QIcon::setThemeName(QStringLiteral("hicolor"));
    const int code = RUN_ALL_TESTS();
    bus.reset();
    return code;
}
