// An app that only exists to contain the extension: macOS takes app extensions from apps. It stands
// in for the companion application where that is not at hand, and does nothing when it is opened.

#import <AppKit/AppKit.h>

int main() {
    @autoreleasepool {
        [[NSApplication sharedApplication] run];
    }
    return 0;
}
