#include "runtime/PrefixedCSSRewriter.h"

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace tomekeeper {
namespace {

// ---------------------------------------------------------------------------------------------
// The table.

struct KeywordMapping {
  std::string_view prefixed;
  std::string_view standard;
};

struct PropertyRule {
  std::string_view name;
  // Empty when WebKit already knows the name and only some keywords need mapping.
  std::string_view standardName;
  std::array<KeywordMapping, 3> keywords{};
};

constexpr std::array<PropertyRule, 8> kRules{{
    {"-epub-line-break", "line-break", {}},
    {"-epub-text-align-last", "text-align-last", {}},
    {"-epub-text-combine-horizontal", "text-combine-upright", {}},
    {"-epub-text-emphasis-position", "text-emphasis-position", {}},
    {"-epub-text-underline-position", "text-underline-position", {{{"alphabetic", "auto"}}}},
    {"-epub-text-orientation",
     "",
     {{{"vertical-right", "mixed"}, {"rotate-right", "sideways"}, {"rotate-normal", "sideways"}}}},
    {"-epub-text-transform", "", {{{"-epub-fullwidth", "full-width"}}}},
    {"text-transform", "", {{{"-epub-fullwidth", "full-width"}}}},
}};

char lowered(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

bool equalsIgnoringASCIICase(std::string_view text, std::string_view lowercase) {
  if (text.size() != lowercase.size()) return false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (lowered(text[index]) != lowercase[index]) return false;
  }
  return true;
}

const PropertyRule* ruleForProperty(std::string_view name) {
  for (const PropertyRule& rule : kRules) {
    if (equalsIgnoringASCIICase(name, rule.name)) return &rule;
  }
  return nullptr;
}

std::optional<std::string_view> mappedKeyword(const PropertyRule& rule, std::string_view word) {
  for (const KeywordMapping& mapping : rule.keywords) {
    if (!mapping.prefixed.empty() && equalsIgnoringASCIICase(word, mapping.prefixed)) {
      return mapping.standard;
    }
  }
  return std::nullopt;
}

bool containsEPUBPrefix(std::string_view text) {
  constexpr std::string_view kPrefix = "-epub-";
  for (std::size_t start = text.find('-'); start != std::string_view::npos;
       start = text.find('-', start + 1)) {
    if (equalsIgnoringASCIICase(text.substr(start, kPrefix.size()), kPrefix)) return true;
  }
  return false;
}

// ---------------------------------------------------------------------------------------------
// Tokens: just enough of CSS Syntax to know where strings, comments, url()s, blocks and
// declarations begin and end. Every token is at least one byte long.

enum class TokenKind {
  whitespace,
  comment,
  string,
  url,
  word,      // an identifier, a number or a dimension: a run of name characters
  function,  // a word followed by "(", which the token includes
  hashOrAt,  // "#" or "@" followed by a word
  open,      // { ( [
  close,     // } ) ]
  semicolon,
  colon,
  other,
};

struct Token {
  TokenKind kind;
  std::size_t begin;
  std::size_t end;
};

bool isWhitespace(char character) {
  return character == ' ' || character == '\t' || character == '\n' || character == '\r' ||
         character == '\f';
}

bool isNewline(char character) {
  return character == '\n' || character == '\r' || character == '\f';
}

bool isNameCharacter(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte >= 0x80;
}

class Tokenizer {
 public:
  explicit Tokenizer(std::string_view text) : text_(text) {}

  std::size_t size() const { return text_.size(); }
  char at(std::size_t position) const { return text_[position]; }
  std::string_view slice(std::size_t begin, std::size_t end) const {
    return text_.substr(begin, end - begin);
  }

  Token next(std::size_t position) const {
    const char character = text_[position];
    if (isWhitespace(character)) {
      std::size_t end = position + 1;
      while (end < text_.size() && isWhitespace(text_[end])) ++end;
      return {TokenKind::whitespace, position, end};
    }
    if (character == '/' && peek(position + 1) == '*') {
      const std::size_t close = text_.find("*/", position + 2);
      return {TokenKind::comment, position,
              close == std::string_view::npos ? text_.size() : close + 2};
    }
    if (character == '"' || character == '\'')
      return {TokenKind::string, position, stringEnd(position)};
    if (startsWord(position)) {
      const std::size_t end = wordEnd(position);
      if (peek(end) != '(') return {TokenKind::word, position, end};
      if (equalsIgnoringASCIICase(slice(position, end), "url")) {
        std::size_t inside = end + 1;
        while (inside < text_.size() && isWhitespace(text_[inside])) ++inside;
        if (peek(inside) != '"' && peek(inside) != '\'') {
          return {TokenKind::url, position, unquotedURLEnd(inside)};
        }
      }
      return {TokenKind::function, position, end + 1};
    }
    if ((character == '#' || character == '@') && startsWord(position + 1)) {
      return {TokenKind::hashOrAt, position, wordEnd(position + 1)};
    }
    switch (character) {
      case '{':
      case '(':
      case '[':
        return {TokenKind::open, position, position + 1};
      case '}':
      case ')':
      case ']':
        return {TokenKind::close, position, position + 1};
      case ';':
        return {TokenKind::semicolon, position, position + 1};
      case ':':
        return {TokenKind::colon, position, position + 1};
      default:
        return {TokenKind::other, position, position + 1};
    }
  }

 private:
  char peek(std::size_t position) const { return position < text_.size() ? text_[position] : '\0'; }

  // A backslash escapes the next character unless that is a newline or the end.
  bool isEscape(std::size_t position) const {
    return peek(position) == '\\' && position + 1 < text_.size() && !isNewline(text_[position + 1]);
  }

  bool startsWord(std::size_t position) const {
    return position < text_.size() && (isNameCharacter(text_[position]) || isEscape(position));
  }

  std::size_t wordEnd(std::size_t position) const {
    while (position < text_.size()) {
      if (isEscape(position)) {
        position += 2;
      } else if (isNameCharacter(text_[position])) {
        ++position;
      } else {
        break;
      }
    }
    return position;
  }

  // A string ends at its closing quote, or before an unescaped newline, or at the end.
  std::size_t stringEnd(std::size_t open) const {
    const char quote = text_[open];
    std::size_t position = open + 1;
    while (position < text_.size()) {
      const char character = text_[position];
      if (character == quote) return position + 1;
      if (isNewline(character)) return position;
      position += character == '\\' ? 2 : 1;
    }
    return text_.size();
  }

  // An unquoted url(), well formed or not, runs to its ")" or the end; escapes are skipped.
  std::size_t unquotedURLEnd(std::size_t position) const {
    while (position < text_.size()) {
      if (text_[position] == ')') return position + 1;
      position += isEscape(position) ? 2 : 1;
    }
    return text_.size();
  }

  std::string_view text_;
};

// ---------------------------------------------------------------------------------------------
// The rewrite.

enum class Frame { ruleBody, valueBlock, parenthesis, bracket };

char closerOf(Frame frame) {
  switch (frame) {
    case Frame::ruleBody:
    case Frame::valueBlock:
      return '}';
    case Frame::parenthesis:
      return ')';
    case Frame::bracket:
      return ']';
  }
  return '}';
}

enum class Start { styleSheet, declarationList };

class Rewriter {
 public:
  Rewriter(std::string_view text, Start start) : text_(text), tokens_(text) {
    output_.reserve(text.size() + 64);
    if (start == Start::declarationList) {
      frames_.push_back(Frame::ruleBody);
      bottom_ = 1;
      atItemStart_ = true;
    }
  }

  std::string run() {
    std::size_t position = 0;
    while (position < tokens_.size()) {
      if (atItemStart_ && inRuleBody()) {
        const Token token = tokens_.next(position);
        if (token.kind == TokenKind::whitespace || token.kind == TokenKind::comment) {
          copy(token.begin, token.end);
          position = token.end;
          continue;
        }
        atItemStart_ = false;
        if (token.kind == TokenKind::word) {
          if (const std::optional<std::size_t> end = declarationEnd(token)) {
            rewriteDeclaration(token, *end);
            position = *end;
            continue;
          }
        }
      }
      position = structural(tokens_.next(position));
    }
    return std::move(output_);
  }

 private:
  bool inRuleBody() const { return !frames_.empty() && frames_.back() == Frame::ruleBody; }
  bool atItemLevel() const { return frames_.empty() || frames_.back() == Frame::ruleBody; }

  void copy(std::size_t begin, std::size_t end) {
    output_.append(text_.substr(begin, end - begin));
  }

  // Copies a token outside any declaration and follows the nesting it opens or closes.
  std::size_t structural(const Token& token) {
    copy(token.begin, token.end);
    const char character = tokens_.at(token.begin);
    switch (token.kind) {
      case TokenKind::function:
        frames_.push_back(Frame::parenthesis);
        break;
      case TokenKind::open:
        if (character == '{') {
          // Only a brace at the level of rules opens a block of declarations; inside a
          // parenthesis or bracket it is a plain block of values.
          frames_.push_back(atItemLevel() ? Frame::ruleBody : Frame::valueBlock);
          atItemStart_ = frames_.back() == Frame::ruleBody;
        } else {
          frames_.push_back(character == '(' ? Frame::parenthesis : Frame::bracket);
        }
        break;
      case TokenKind::close:
        if (frames_.size() > bottom_ && closerOf(frames_.back()) == character) {
          const Frame closed = frames_.back();
          frames_.pop_back();
          if (closed == Frame::ruleBody) atItemStart_ = true;
        }
        break;
      case TokenKind::semicolon:
        if (atItemLevel()) atItemStart_ = true;
        break;
      default:
        break;
    }
    return token.end;
  }

  // Where the declaration that `name` begins ends (at its ";", at the "}" that closes its
  // block, or at the end of the text), or nothing when `name` begins something else: no colon
  // follows it, or a "{" comes first, which makes it the selector of a nested rule.
  std::optional<std::size_t> declarationEnd(const Token& name) {
    std::size_t position = name.end;
    while (position < tokens_.size()) {
      const Token token = tokens_.next(position);
      if (token.kind != TokenKind::whitespace && token.kind != TokenKind::comment) break;
      position = token.end;
    }
    if (position >= tokens_.size() || tokens_.at(position) != ':') return std::nullopt;
    // A custom property's value may hold blocks of its own.
    const bool customProperty = tokens_.slice(name.begin, name.end).starts_with("--");

    closers_.clear();
    while (position < tokens_.size()) {
      const Token token = tokens_.next(position);
      const char character = tokens_.at(token.begin);
      if (token.kind == TokenKind::semicolon && closers_.empty()) return position;
      if (token.kind == TokenKind::function) {
        closers_.push_back(')');
      } else if (token.kind == TokenKind::open) {
        if (character == '{' && closers_.empty() && !customProperty) return std::nullopt;
        closers_.push_back(character == '{' ? '}' : character == '(' ? ')' : ']');
      } else if (token.kind == TokenKind::close) {
        if (!closers_.empty() && closers_.back() == character) {
          closers_.pop_back();
        } else if (closers_.empty() && character == '}') {
          return position;
        }
      }
      position = token.end;
    }
    return tokens_.size();
  }

  void rewriteDeclaration(const Token& name, std::size_t end) {
    const PropertyRule* rule = ruleForProperty(tokens_.slice(name.begin, name.end));
    if (rule == nullptr) {
      copy(name.begin, end);
      return;
    }
    if (rule->standardName.empty()) {
      copy(name.begin, name.end);
    } else {
      output_.append(rule->standardName);
    }
    std::size_t position = name.end;
    while (position < end) {
      const Token token = tokens_.next(position);
      const std::optional<std::string_view> keyword =
          token.kind == TokenKind::word
              ? mappedKeyword(*rule, tokens_.slice(token.begin, token.end))
              : std::nullopt;
      if (keyword) {
        output_.append(*keyword);
      } else {
        copy(token.begin, token.end);
      }
      position = token.end;
    }
  }

  std::string_view text_;
  Tokenizer tokens_;
  std::string output_;
  std::vector<Frame> frames_;
  // Frames that no "}" may close: the implied block of a style attribute.
  std::size_t bottom_ = 0;
  bool atItemStart_ = false;
  std::vector<char> closers_;
};

std::string rewrite(std::string_view text, Start start) {
  if (!containsEPUBPrefix(text)) return std::string(text);
  return Rewriter(text, start).run();
}

}  // namespace

std::string PrefixedCSSRewriter::rewriteStyleSheet(std::string_view styleSheet) {
  return rewrite(styleSheet, Start::styleSheet);
}

std::string PrefixedCSSRewriter::rewriteStyleAttribute(std::string_view declarations) {
  return rewrite(declarations, Start::declarationList);
}

}  // namespace tomekeeper
