#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>

#include <vector>

namespace
{

/// Has clang-tidy look at what our files declare, and not at what the system's headers do: these are most of
/// what a file sees, took three quarters of the time, and what is found in them is not shown. scripts/lint
/// loads it.
class OwnDeclarations : public clang::tidy::ClangTidyCheck
{
public:
    using ClangTidyCheck::ClangTidyCheck;

    void registerMatchers(clang::ast_matchers::MatchFinder* finder) override
    {
        finder->addMatcher(clang::ast_matchers::translationUnitDecl(), this);
    }

    // The file as a whole comes before whatever is in it.
    void check(clang::ast_matchers::MatchFinder::MatchResult const& result) override
    {
        std::vector<clang::Decl*> own;
        for (clang::Decl* const declaration : result.Context->getTranslationUnitDecl()->decls()) {
            auto const place = declaration->getLocation();
            if (place.isValid() && !result.SourceManager->isInSystemHeader(place))
                own.push_back(declaration);
        }
        result.Context->setTraversalScope(own);
    }
};

class Module : public clang::tidy::ClangTidyModule
{
public:
    void addCheckFactories(clang::tidy::ClangTidyCheckFactories& factories) override
    {
        factories.registerCheck<OwnDeclarations>("zrt-own-declarations");
    }
};

clang::tidy::ClangTidyModuleRegistry::Add<Module> const added("zrt", "");

} // namespace
