#pragma once

// What every product's extension is called on the session bus. Which products there are, only the
// bus knows.

namespace file_managers {

/// How a product's bus name ends. What comes before, with the ".", begins the names of its icons.
inline constexpr char busNameEnd[] = ".FinderSync";

inline constexpr char objectPath[] = "/FinderSync";
inline constexpr char interfaceName[] = "findersync.Extension1";

} // namespace file_managers
