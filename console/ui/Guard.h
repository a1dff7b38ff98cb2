#pragma once

#include <exception>
#include <utility>

#include "console/ui/MessageBox.h"

namespace tessaly::ui {

/// A fault that no guarded() catches: it ends the console. For the few places where a conversion fails in
/// the middle of a guarded operation and is still meant to end the program.
class UncaughtFault : public std::exception {
  public:
    explicit UncaughtFault(const char* description) : description_(description) {}
    [[nodiscard]] const char* what() const noexcept override { return description_; }

  private:
    const char* description_;  // a literal
};

/// Shows a fault's own description as the whole text of a box without title.
void showFault(QWidget* parent, const std::exception& fault, BoxStyle style);

/// The default report of a fault that nobody caught: one critical box, then the console ends with status 1.
void endByFault(const std::exception& fault) noexcept;

/// Runs the body of an operation that reports its own failures. True when it ran to its end.
template <class Body>
bool guarded(QWidget* parent, BoxStyle style, Body&& body) {
    try {
        std::forward<Body>(body)();
        return true;
    } catch (const UncaughtFault&) {
        throw;
    } catch (const std::exception& fault) {
        showFault(parent, fault, style);
        return false;
    }
}

/// Runs a body whose failure is of no consequence, by rule and not by neglect.
template <class Body>
void ignoringErrors(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): this is what the name says
    }
}

/// Makes a slot of a body: what the body lets through ends the console by endByFault(), since no exception
/// may pass through the toolkit. Every connect of a form goes through it.
template <class Body>
auto handler(Body body) {
    return [body = std::move(body)](auto&&... arguments) mutable {
        try {
            if constexpr (std::is_invocable_v<Body&, decltype(arguments)...>)
                body(std::forward<decltype(arguments)>(arguments)...);
            else
                body();
        } catch (const std::exception& fault) {
            endByFault(fault);
        }
    };
}

}  // namespace tessaly::ui
