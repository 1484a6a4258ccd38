#pragma once

#include <set>

namespace tomekeeper {

// The two font obfuscations a book's META-INF/encryption.xml may name: the one of the EPUB
// container format, and the older font mangling that reading systems also accept. The
// container's validation lets no other encryption through.
enum class FontObfuscationAlgorithm { idpf, adobe };

// What the intake of a book learnt of it while validating its container, handed on with the
// prepared book so that the book's safety report can say it. A plain value.
struct PublicationIntakeFindings {
  // Every obfuscation algorithm that encryption.xml names; empty when the book has none.
  std::set<FontObfuscationAlgorithm> fontObfuscationAlgorithms;

  bool operator==(const PublicationIntakeFindings&) const = default;
};

}  // namespace tomekeeper
