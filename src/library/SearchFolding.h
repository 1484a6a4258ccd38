#pragma once

#include <string>
#include <string_view>

namespace tomekeeper {

// Folds UTF-8 text for matching as the book search does: compatibility decomposition (NFKD),
// diacritic marks and default-ignorable code points dropped, typographic quotes as the plain
// ones, full case folding, and every run of white space as one space with none at the ends.
// "Émile Zola" and "emile  zola" fold alike. Invalid UTF-8 is read with replacement characters.
// All Unicode knowledge is ICU's. Pure; any thread.
std::string foldForSearch(std::string_view text);

// Whether `folded` (a folded text) holds `foldedNeedle` (a folded query); an empty query is in
// every text.
bool foldedContains(std::string_view folded, std::string_view foldedNeedle);

}  // namespace tomekeeper
