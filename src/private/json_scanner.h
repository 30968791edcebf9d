#ifndef NIVUR_PRIVATE_JSON_SCANNER_H
#define NIVUR_PRIVATE_JSON_SCANNER_H

#include <cstddef>
#include <string>

namespace NIVUR {

/// A valid string within JSON text, which must outlive it.
struct JsonString {
    const char* text = "";      // after the opening quote
    std::size_t size = 0;       // up to the closing quote
    std::size_t shrinkage = 0;  // by how much the value is shorter; 0 without escapes
    bool hasNul = false;        // in the value

    std::string value() const;
};

/// Splits JSON text, which ends at its first NUL, into tokens. It refuses the same texts as jansson
/// 2.14, with the same messages. It allocates nothing. Not thread-safe.
class JsonScanner {
  public:
    /// A token that is always the same single byte has the value of that byte.
    enum Token : char {
        END = 0,
        INVALID = 'x',
        STRING = '"',
        INTEGER = 'i',
        REAL = 'r',
        TRUE = 't',
        FALSE = 'f',
        NONE = 'n',
        BEGIN_OBJECT = '{',
        END_OBJECT = '}',
        BEGIN_ARRAY = '[',
        END_ARRAY = ']',
        COLON = ':',
        COMMA = ',',
    };

    /// `text` must outlive the scanner.
    explicit JsonScanner(const std::string& text);

    /// Reads the next token. REQUIRES: the last token was not INVALID.
    Token next() {
        while (*_next == ' ' || *_next == '\t' || *_next == '\n' || *_next == '\r') {
            ++_next;
        }
        _token = _next;
        switch (*_token) {
            case BEGIN_OBJECT:
            case END_OBJECT:
            case BEGIN_ARRAY:
            case END_ARRAY:
            case COLON:
            case COMMA:
                return static_cast<Token>(*_next++);
            case STRING:
                return scanString();
            default:
                return scanLonger();
        }
    }

    ///@{
    /// The value of the last token, which is of that type.
    long long integer() const { return _integer; }
    double real() const { return _real; }
    const JsonString& string() const { return _string; }
    ///@}

    /// Estimates the number of elements of an array whose first element is the last token. It is
    /// exact if all are numbers and words, or strings without escapes and brackets; otherwise it
    /// may be too low.
    std::size_t elementsAhead() const;

    /// Refuses the text with `message` and the last token. Only the first refusal counts.
    void refuse(const char* message);

    /// The reason why the text was refused; "" if it was not.
    const char* error() const { return _error; }

  private:
    Token scanLonger();
    Token scanString();
    Token scanNumber();
    Token scanWord();
    Token scanOther();
    Token endToken(const char* end, Token token);
    Token convertInteger();
    Token convertReal();
    const char* scanEscape(const char* escape, const char*& unpaired);
    const char* scanCodePoint(const char* escape, const char*& unpaired);
    Token refuseEscape(const char* wrong);
    Token refuseInString(const char* wrong);
    Token refuseSurrogate(const char* unpaired);
    Token refuseByte(const char* wrong);

    const char* _next;           // the last token ends here
    const char* _token;          // the last token begins here
    const char* const _textEnd;  // at the final NUL; the text may have others
    JsonString _string;
    long long _integer = 0;
    double _real = 0;
    char _error[96] = "";
};

}  // namespace NIVUR

#endif
