// An app that does nothing but contain the extension, because macOS loads app extensions only from
// apps. It replaces the companion application during development.

#import <AppKit/AppKit.h>

int main() {
    @autoreleasepool {
        [[NSApplication sharedApplication] run];
    }
    return 0;
}
