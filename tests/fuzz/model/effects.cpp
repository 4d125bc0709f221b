#include "effects.h"

#include "variants.h"

#include <QDebug>

#include <algorithm>

bool areSame(Effects const& did, Effects const& should)
{
    auto const eachSame = [](auto const& a, auto const& b, auto const& same) {
        return a.size() == b.size() && std::equal(a.cbegin(), a.cend(), b.cbegin(), same);
    };
    return did.answer == should.answer && did.kinds == should.kinds && did.infos == should.infos
           && did.withdrawn == should.withdrawn && did.dropped == should.dropped && did.ends == should.ends
           && did.toldEnds == should.toldEnds
           && eachSame(did.posts, should.posts,
                       [](Post const& a, Post const& b) {
                           return a.id == b.id && a.name == b.name && isSame(a.arguments, b.arguments);
                       })
           && eachSame(
               did.results, should.results,
               [](auto const& a, auto const& b) { return a.first == b.first && isSame(a.second, b.second); })
           && eachSame(did.errors, should.errors, [](LoggedError const& a, LoggedError const& b) {
                  return a.file == b.file && (b.line == 0 || a.line == b.line) && a.message == b.message;
              });
}

QString shown(Effects const& effects)
{
    QString text;
    QDebug stream(&text);
    stream << "\n   answer" << effects.answer << "kinds, in order" << effects.kinds;
    for (auto const& what : effects.wrong)
        stream << "\n   wrong:" << what;
    for (auto const& post : effects.posts)
        stream << "\n   instruction" << post.id << post.name << post.arguments;
    for (auto const& result : effects.results)
        stream << "\n   result" << result.first << result.second;
    for (auto const& error : effects.errors)
        stream << "\n   error" << error.file << error.line << error.message;
    stream << "\n   infos" << effects.infos << "\n   withdrawn" << effects.withdrawn << "dropped"
           << effects.dropped << "ends" << effects.ends << "told" << effects.toldEnds;
    return text;
}
