// The actions of the menu entries. The menu offers only two of the six; the others can be invoked
// by their selectors.

#include "extension/FinderSync.h"

namespace findersync {

void FinderSync::createLinkClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_create_url_link");
}

void FinderSync::backupClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_backup");
}

void FinderSync::shareContactsClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_share_contacts");
}

void FinderSync::inProgressClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_in_progress");
}

void FinderSync::notSyncedClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_not_synced");
}

void FinderSync::syncedClicked(const platform::NSMenuItem*) {
    sendClickedData("clicked_synced");
}

} // namespace findersync
