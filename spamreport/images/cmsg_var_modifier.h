#pragma once

// A ctemplate modifier that hands variables to an object.

#include <ctemplate/template_modifiers.h>

#include <boost/assert.hpp>
#include <boost/shared_ptr.hpp>
#include <string>
#include <utility>

namespace Velmar::VlmCMsg {

/// Calls a shared T with (variable text, argument, emitter) and emits the text it returns. ctemplate passes a
/// modifier's argument with its "="; it is taken off. Number tells several modifiers of one T apart.
template <class T, int Number>
class CmsgVarModifier : public ctemplate::TemplateModifier {
 public:
  explicit CmsgVarModifier(boost::shared_ptr<T> held) : held_(std::move(held)) {}

  void Modify(const char* in, std::size_t inlen, const ctemplate::PerExpandData* /*perExpandData*/,
              ctemplate::ExpandEmitter* out, const std::string& arg) const override {
    BOOST_ASSERT(held_);
    const std::string value(in, inlen);
    const std::string name = !arg.empty() && arg.front() == '=' ? arg.substr(1) : arg;
    out->Emit((*held_)(value, name, out));
  }

  bool MightModify(const ctemplate::PerExpandData* /*perExpandData*/, const std::string& /*arg*/) const override {
    return true;
  }

  /// A counted reference of its own.
  boost::shared_ptr<T> held() const { return held_; }

 private:
  boost::shared_ptr<T> held_;
};

}  // namespace Velmar::VlmCMsg
