#include "extension/PublishedInterface.h"
#include "platform/AppKit.h"
#include "tests/RecordingTest.h"

#include <utility>

using findersync::Action;
using findersync::publishedMethod;
using tests::script;

namespace {

constexpr std::pair<const char*, const char*> clickTypes[] = {
    {"createLinkClicked:", "clicked_create_url_link"},
    {"backupClicked:", "clicked_backup"},
    {"shareContactsClicked:", "clicked_share_contacts"},
    {"inProgressClicked:", "clicked_in_progress"},
    {"notSyncedClicked:", "clicked_not_synced"},
    {"syncedClicked:", "clicked_synced"},
};

class Actions : public tests::RecordingTest {
protected:
    Actions() {
        startConnected();
        script().selection = {platform::fileURLWithPath("/a/x")};
    }

    void perform(const char* selector, const platform::NSMenuItem* sender) {
        tests::world().received.clear();
        (*extension.*std::get<Action>(publishedMethod(selector)->method))(sender);
    }
};

TEST_F(Actions, EachSendsOneReportOfItsTypeWithThePresentSelectionWhoeverTheSenderIs) {
    using Senders = std::initializer_list<const platform::NSMenuItem*>;
    const auto item = platform::menuItemWithTitle("title", "backupClicked:", "");
    for (const auto& [selector, type] : clickTypes) {
        for (const platform::NSMenuItem* const sender : Senders{nullptr, item.get()}) {
            perform(selector, sender);
            EXPECT_EQ(tests::world().received,
                      R"({"items":["/a/x"],"type":")" + std::string(type) + "\"}");
        }
    }
}

} // namespace
