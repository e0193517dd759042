// Where GNUstep differs from Apple's frameworks. Each of these tests is expected to fail for the
// reason given; if one passes, the run fails, so that the list stays true.

#include "tests/macos/KnownDifferences.h"

namespace {

constexpr std::string_view inContracts = "contract-macos";
constexpr std::string_view inPlatform = "macos-platform-tests";
constexpr std::string_view inBundle = "principal-class-tests";

constexpr tests::KnownDifference differences[] = {
    {inBundle, "Bridged.AnIdleStreamHasNoBytes", "it says so while it is open, and reads -1"},
    {inBundle, "Bridged.APortIsNotCutToSixteenBits", "it is"},
    {inBundle, "Bridged.ComparingKnowsCanonicalEquivalence", "only of some characters"},
    {inBundle, "Bridged.ABundleInApplesLayoutIsLoaded", "only in the flat layout"},
    {inBundle, "JSON.ValuesThatJSONDoesNotHaveAreTheEmptyText",
     "single values and dates are valid"},
    {inPlatform, "Values.HalfOfASurrogatePairIsOpaque", "it counts as encodable"},
    {inPlatform, "Strings.HalfOfASurrogatePairIsReplaced", "it is dropped, and all of the text"},
    {inContracts, "JSONContract.EveryKindOfValueIsKept", "every number is read as a fraction"},
    {inContracts, "JSONContract.ATopLevelScalarIsRefused", "texts that are no container are read"},
    {inContracts, "JSONContract.TextThatIsNotJSONIsRefused", "malformed texts are read"},
    {inContracts, "JSONContract.AHundredLevelsAreParsedAndNoDepthCrashes",
     "there is no limit to the depth"},
    {inContracts, "JSONContract.OnlyContainersOfWhatJSONKnowsAreValid",
     "single values and bytes are valid"},
    {inContracts, "JSONContract.WithoutOptionsTheTextIsCompact", "a space follows each colon"},
    {inContracts, "JSONContract.CharactersOutsideASCIIStandForThemselves", "they are escaped"},
    {inContracts, "JSONContract.WhatIsWrittenIsReadAsTheSameValue",
     "every number is read as a fraction"},
    {inContracts, "JSONContract.PrettyPrintingTakesSeveralIndentedLines",
     "lines are indented by tabs"},
    {inContracts, "StreamContract.ARefusedConnectionIsOneErrorOnEachStream",
     "a read then gives 0, not -1"},
    {inContracts, "StreamContract.TheInputStreamTellsTheEndOnce",
     "bytes are announced before the end"},
    {inContracts, "StreamContract.BytesSentBeforeTheEndAreReadFirst",
     "bytes are announced before the end"},
    {inContracts, "StreamContract.AResetIsAnErrorOnEachStreamAndNoEnd",
     "only the input stream tells"},
    {inContracts, "StreamContract.BytesSentBeforeAResetAreReadFirst",
     "only the input stream tells"},
    {inContracts, "StreamContract.AStreamThatIsNotScheduledTellsNothing",
     "it takes the current run loop"},
    {inContracts, "TextContract.AByteOrderMarkCounts", "normalizing a text drops it"},
    {inContracts, "TextContract.CanonicallyEquivalentSequencesAreFound",
     "not all equivalents are known"},
    {inContracts, "TextContract.AMatchNeverEndsInsideACombinedCharacter",
     "Hangul syllables are not known"},
};

} // namespace

std::span<const tests::KnownDifference> tests::knownDifferences() {
    return differences;
}
