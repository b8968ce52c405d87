#include "UsdaSkeletonReader.h"

#include "LoaderFiles.h"
#include "MathUtils.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <unordered_map>

namespace Zento {

namespace {

struct Token {
    enum Kind { End, Invalid, Word, Text, Symbol };
    Kind kind = End;
    std::string text;
};

// Splits USD's text into words (type and attribute names, numbers, keywords),
// quoted texts and single symbols. Comments, asset paths and prim paths are
// passed over. Every step consumes input, so no text makes it loop.
class Tokenizer {
public:
    explicit Tokenizer(const std::string& text) : mText(text) {}

    Token next()
    {
        skipSpaceAndComments();
        Token token;
        if (mPos >= mText.size())
            return token;
        const char c = mText[mPos];
        if (c == '"' || c == '\'')
            return quoted(c);
        if (c == '@' || c == '<')
            return skipDelimited(c == '@' ? '@' : '>');
        if (isWordChar(c)) {
            const size_t start = mPos;
            while (mPos < mText.size() && isWordChar(mText[mPos]))
                ++mPos;
            // Array types are one word: "token[]", "matrix4d[]".
            if (mText.compare(mPos, 2, "[]") == 0)
                mPos += 2;
            token.kind = Token::Word;
            token.text = mText.substr(start, mPos - start);
            return token;
        }
        ++mPos;
        token.kind = Token::Symbol;
        token.text = std::string(1, c);
        return token;
    }

private:
    static bool isWordChar(char c)
    {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == ':' || c == '.' || c == '-' || c == '+';
    }

    void skipSpaceAndComments()
    {
        while (mPos < mText.size()) {
            if (mText[mPos] == '#') {
                const size_t end = mText.find('\n', mPos);
                mPos = end == std::string::npos ? mText.size() : end + 1;
            } else if (std::isspace(static_cast<unsigned char>(mText[mPos]))) {
                ++mPos;
            } else {
                return;
            }
        }
    }

    Token quoted(char quote)
    {
        Token token;
        const std::string triple(3, quote);
        const bool isTriple = mText.compare(mPos, 3, triple) == 0;
        mPos += isTriple ? 3 : 1;
        while (mPos < mText.size()) {
            const char c = mText[mPos];
            if (c == '\\' && mPos + 1 < mText.size()) {
                token.text += mText[mPos + 1];
                mPos += 2;
            } else if (isTriple ? mText.compare(mPos, 3, triple) == 0 : c == quote) {
                mPos += isTriple ? 3 : 1;
                token.kind = Token::Text;
                return token;
            } else if (!isTriple && c == '\n') {
                break;
            } else {
                token.text += c;
                ++mPos;
            }
        }
        token.kind = Token::Invalid;
        token.text = "a quoted text that does not end";
        return token;
    }

    Token skipDelimited(char close)
    {
        Token token;
        const size_t end = mText.find(close, mPos + 1);
        if (end == std::string::npos) {
            token.kind = Token::Invalid;
            token.text = std::string("a path without its closing ") + close;
            mPos = mText.size();
            return token;
        }
        mPos = end + 1;
        token.kind = Token::Symbol;
        token.text = "path";
        return token;
    }

    const std::string& mText;
    size_t mPos = 0;
};

bool isSymbol(const Token& token, char symbol)
{
    return token.kind == Token::Symbol && token.text.size() == 1 && token.text[0] == symbol;
}

// Reads the elements of a list after its "[": each by readElement, separated
// by commas, a trailing comma allowed, up to the "]".
template <typename ReadElement>
bool readList(Tokenizer& tokens, ReadElement readElement, std::string& reason)
{
    Token token = tokens.next();
    while (!isSymbol(token, ']')) {
        if (!readElement(token))
            return false;
        token = tokens.next();
        if (isSymbol(token, ','))
            token = tokens.next();
        else if (!isSymbol(token, ']')) {
            reason = "a list misses a \",\" or its \"]\"";
            return false;
        }
    }
    return true;
}

bool readNumber(const Token& token, double& value)
{
    if (token.kind != Token::Word)
        return false;
    char* end = nullptr;
    value = std::strtod(token.text.c_str(), &end);
    return end == token.text.c_str() + token.text.size() && std::isfinite(value);
}

// "( (a, b, c, d), (...), (...), (...) )", rows as in the file: USD matrices
// act on row vectors, as the scene model's do.
bool readMatrix(Tokenizer& tokens, const Token& first, Imath::M44d& matrix)
{
    if (!isSymbol(first, '('))
        return false;
    for (int row = 0; row < 4; ++row) {
        if (!isSymbol(tokens.next(), '('))
            return false;
        for (int column = 0; column < 4; ++column) {
            if (!readNumber(tokens.next(), matrix[row][column]))
                return false;
            if (!isSymbol(tokens.next(), column < 3 ? ',' : ')'))
                return false;
        }
        if (!isSymbol(tokens.next(), row < 3 ? ',' : ')'))
            return false;
    }
    return true;
}

struct SkeletonText {
    bool hasJoints = false;
    std::vector<std::string> joints;
    std::vector<Imath::M44d> restTransforms;
    std::vector<Imath::M44d> bindTransforms;
};

bool readStringArray(Tokenizer& tokens, std::vector<std::string>& values, std::string& reason)
{
    return readList(
        tokens,
        [&](const Token& token) {
            if (token.kind != Token::Text || values.size() >= ZentoCore::Skeleton::kMaxJoints) {
                reason = token.kind != Token::Text ? "\"joints\" holds something else than quoted names"
                                                   : "\"joints\" holds more joints than a skeleton can have";
                return false;
            }
            values.push_back(token.text);
            return true;
        },
        reason);
}

bool readMatrixArray(Tokenizer& tokens, const std::string& name, std::vector<Imath::M44d>& values, std::string& reason)
{
    values.clear();
    return readList(
        tokens,
        [&](const Token& token) {
            Imath::M44d matrix;
            if (values.size() >= ZentoCore::Skeleton::kMaxJoints || !readMatrix(tokens, token, matrix)) {
                reason = "\"" + name + "\" holds something else than 4 by 4 matrices of finite numbers";
                return false;
            }
            values.push_back(matrix);
            return true;
        },
        reason);
}

// Finds the first "def Skeleton" and reads the attributes declared directly in
// its body; those of nested prims and of metadata are passed over.
bool readSkeletonText(const std::string& text, SkeletonText& skeleton, std::string& reason)
{
    Tokenizer tokens(text);
    Token before;
    Token last;
    Token token = tokens.next();
    bool inSkeleton = false;
    int depth = 0;
    int parentheses = 0; // metadata, such as a prim's own dictionaries
    for (; token.kind != Token::End && token.kind != Token::Invalid; before = last, last = token, token = tokens.next()) {
        if (!inSkeleton) {
            if (before.kind == Token::Word && before.text == "def" && last.kind == Token::Word
                && last.text == "Skeleton" && token.kind == Token::Text)
                inSkeleton = true;
            continue;
        }
        if (isSymbol(token, '('))
            ++parentheses;
        else if (isSymbol(token, ')'))
            --parentheses;
        else if (parentheses == 0 && isSymbol(token, '{'))
            ++depth;
        else if (parentheses == 0 && isSymbol(token, '}') && --depth == 0)
            return true;
        if (depth != 1 || parentheses != 0 || !isSymbol(token, '=') || before.kind != Token::Word
            || last.kind != Token::Word)
            continue;
        const bool isJoints = before.text == "token[]" && last.text == "joints";
        const bool isRest = before.text == "matrix4d[]" && last.text == "restTransforms";
        const bool isBind = before.text == "matrix4d[]" && last.text == "bindTransforms";
        if (!isJoints && !isRest && !isBind)
            continue;
        if (!isSymbol(tokens.next(), '[')) {
            reason = "\"" + last.text + "\" has no list of values";
            return false;
        }
        skeleton.hasJoints |= isJoints;
        if (isJoints) {
            skeleton.joints.clear();
            if (!readStringArray(tokens, skeleton.joints, reason))
                return false;
        } else if (!readMatrixArray(tokens, last.text, isRest ? skeleton.restTransforms : skeleton.bindTransforms,
                                    reason)) {
            return false;
        }
        token = Token();
    }
    if (token.kind == Token::Invalid)
        reason = "the text holds " + token.text;
    else
        reason = inSkeleton ? "the Skeleton prim does not end" : "the text holds no Skeleton prim";
    return false;
}

// The joints with their parents from the paths, and their local poses.
bool buildJoints(const SkeletonText& skeleton, std::vector<ZentoCore::Joint>& joints, std::string& reason)
{
    const std::vector<std::string>& paths = skeleton.joints;
    const bool useRest = skeleton.restTransforms.size() == paths.size();
    if (!useRest && skeleton.bindTransforms.size() != paths.size()) {
        reason = "the Skeleton prim has no \"restTransforms\" or \"bindTransforms\" for its "
            + std::to_string(paths.size()) + " joints";
        return false;
    }
    std::unordered_map<std::string, int> indexByPath;
    for (size_t index = 0; index < paths.size(); ++index) {
        const std::string& path = paths[index];
        if (path.empty() || path.front() == '/' || path.back() == '/' || path.find("//") != std::string::npos) {
            reason = "\"" + path + "\" is not a joint path";
            return false;
        }
        if (!indexByPath.emplace(path, static_cast<int>(index)).second) {
            reason = "the joint \"" + path + "\" is listed twice";
            return false;
        }
    }
    joints.resize(paths.size());
    for (size_t index = 0; index < paths.size(); ++index) {
        const std::string& path = paths[index];
        const size_t slash = path.rfind('/');
        ZentoCore::Joint& joint = joints[index];
        joint.name = slash == std::string::npos ? path : path.substr(slash + 1);
        joint.id = static_cast<int>(index);
        if (slash != std::string::npos) {
            const auto parent = indexByPath.find(path.substr(0, slash));
            if (parent != indexByPath.end() && parent->second > static_cast<int>(index)) {
                reason = "the joint \"" + path + "\" comes before its parent";
                return false;
            }
            if (parent != indexByPath.end())
                joint.parent = parent->second;
        }
        Imath::M44d local = useRest ? skeleton.restTransforms[index] : skeleton.bindTransforms[index];
        // Bind transforms are in the skeleton's space: world = local * parent world.
        if (!useRest && joint.parent >= 0)
            local = local * ZentoCore::matrixInverse(skeleton.bindTransforms[static_cast<size_t>(joint.parent)]);
        splitMatrix(local, joint.translation, joint.rotation, joint.scale);
    }
    return true;
}

} // namespace

bool readUsdaSkeleton(const std::string& text, std::vector<ZentoCore::Joint>& joints, std::string* error)
{
    joints.clear();
    SkeletonText skeleton;
    std::string reason;
    if (readSkeletonText(text, skeleton, reason)) {
        if (!skeleton.hasJoints || skeleton.joints.empty())
            reason = "the Skeleton prim has no \"joints\"";
        else if (buildJoints(skeleton, joints, reason))
            return true;
    }
    joints.clear();
    setError(error, reason);
    return false;
}

} // namespace Zento
