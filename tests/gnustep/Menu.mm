// GNUstep's menus create windows, which need an application and a display. These menus only hold
// their entries.

#import <AppKit/AppKit.h>

@interface DisplaylessMenu : NSMenu {
    NSString* title_;
    NSMutableArray* items_;
}
@end

@implementation NSMenu (Displayless)

+ (id)allocWithZone:(NSZone*)zone {
    return NSAllocateObject([DisplaylessMenu class], 0, zone);
}

@end

@implementation DisplaylessMenu

- (id)initWithTitle:(NSString*)title {
    title_ = [title copy];
    items_ = [[NSMutableArray alloc] init];
    return self;
}

- (void)dealloc {
    [title_ release];
    [items_ release];
    [super dealloc];
}

- (NSString*)title {
    return title_;
}

- (void)addItem:(id)item {
    [items_ addObject:item];
}

- (NSArray*)itemArray {
    return items_;
}

@end
