#include "expr/ExpressionEvalFusedOp.h"

#include "expr/ExpressionEvalContext.h"
#include "expr/ExpressionEvalOp.h"

#include <type_traits>
#include <typeinfo>

namespace {

// Operand readers. A slot is a plain (not host-bound) variable, read straight from the context's
// number array; host variables stay behind their virtual hook.
struct SlotOperand {
    int m_Index;
    double Get(ExpressionEvalContext& context) const { return context.GetNumber(m_Index); }
};

struct ConstantOperand {
    double m_Value;
    double Get(ExpressionEvalContext&) const { return m_Value; }
};

struct NodeOperand {
    const ExpressionEvalOp* m_Node;
    double Get(ExpressionEvalContext& context) const { return m_Node->Evaluate(context); }
};

template <class Op, class L, class R> class ExpressionEvalFusedOp final : public Op {
public:
    ExpressionEvalFusedOp(ExpressionEvalOp* left, ExpressionEvalOp* right, L l, R r)
        : Op(left, right), m_L(l), m_R(r) {}

    double Evaluate(ExpressionEvalContext& context) const override {
        if constexpr (Op::kRightFirst) {
            const double r = m_R.Get(context);
            return Op::Apply(m_L.Get(context), r);
        } else {
            const double l = m_L.Get(context);
            return Op::Apply(l, m_R.Get(context));
        }
    }

private:
    L m_L;
    R m_R;
};

const ExpressionEvalVarOp* AsSlot(const ExpressionEvalOp* node) {
    if (typeid(*node) != typeid(ExpressionEvalVarOp))
        return nullptr;
    auto* var = static_cast<const ExpressionEvalVarOp*>(node);
    return var->IsHost() ? nullptr : var;
}

const ExpressionEvalNumberOp* AsConstant(const ExpressionEvalOp* node) {
    return typeid(*node) == typeid(ExpressionEvalNumberOp)
               ? static_cast<const ExpressionEvalNumberOp*>(node)
               : nullptr;
}

template <class Op, class L>
ExpressionEvalOp* WithRight(ExpressionEvalOp* left, ExpressionEvalOp* right, L l) {
    if (auto* c = AsConstant(right))
        return new ExpressionEvalFusedOp<Op, L, ConstantOperand>(left, right, l, {c->Value()});
    if (auto* s = AsSlot(right))
        return new ExpressionEvalFusedOp<Op, L, SlotOperand>(left, right, l, {s->Index()});
    return nullptr;
}

// A comparison whose operands are slots or constants, tested without a call. The results are
// those of the comparison classes' Apply, so truth (1.0 or 0.0, never a fraction) is the same
// whether the && || and if around it truncate or not.
struct Comparison {
    enum Kind : unsigned char { kEquals, kNotEquals, kGreater, kLess, kGreaterEqual, kLessEqual };
    Kind m_Kind;
    bool m_LeftIsSlot, m_RightIsSlot;
    int m_LeftIndex, m_RightIndex;
    double m_LeftValue, m_RightValue;

    bool Holds(ExpressionEvalContext& context) const {
        const double l = m_LeftIsSlot ? context.GetNumber(m_LeftIndex) : m_LeftValue;
        const double r = m_RightIsSlot ? context.GetNumber(m_RightIndex) : m_RightValue;
        switch (m_Kind) {
        case kEquals:
            return ExpressionEvalEqualsOp::Apply(l, r) != 0.0;
        case kNotEquals:
            return ExpressionEvalNEOp::Apply(l, r) != 0.0;
        case kGreater:
            return ExpressionEvalGTOp::Apply(l, r) != 0.0;
        case kLess:
            return ExpressionEvalLTOp::Apply(l, r) != 0.0;
        case kGreaterEqual:
            return ExpressionEvalGEOp::Apply(l, r) != 0.0;
        case kLessEqual:
            return ExpressionEvalLEOp::Apply(l, r) != 0.0;
        }
        return false;
    }
};

// One comparison, or two joined by && or ||.
struct Condition {
    enum Join : unsigned char { kSingle, kAnd, kOr };
    Join m_Join;
    Comparison m_First, m_Second;

    bool Holds(ExpressionEvalContext& context) const {
        switch (m_Join) {
        case kSingle:
            return m_First.Holds(context);
        case kAnd:
            return m_First.Holds(context) && m_Second.Holds(context);
        case kOr:
            return m_First.Holds(context) || m_Second.Holds(context);
        }
        return false;
    }
};

bool AsOperand(const ExpressionEvalOp* node, bool& isSlot, int& index, double& value) {
    if (auto* s = AsSlot(node)) {
        isSlot = true;
        index = s->Index();
        value = 0.0;
        return true;
    }
    if (auto* c = AsConstant(node)) {
        isSlot = false;
        index = 0;
        value = c->Value();
        return true;
    }
    return false;
}

bool AsComparison(const ExpressionEvalOp* node, Comparison& comparison) {
    auto* binary = dynamic_cast<const ExpressionEvalBinaryOp*>(node);
    if (!binary)
        return false;
    if (dynamic_cast<const ExpressionEvalEqualsOp*>(node))
        comparison.m_Kind = Comparison::kEquals;
    else if (dynamic_cast<const ExpressionEvalNEOp*>(node))
        comparison.m_Kind = Comparison::kNotEquals;
    else if (dynamic_cast<const ExpressionEvalGTOp*>(node))
        comparison.m_Kind = Comparison::kGreater;
    else if (dynamic_cast<const ExpressionEvalLTOp*>(node))
        comparison.m_Kind = Comparison::kLess;
    else if (dynamic_cast<const ExpressionEvalGEOp*>(node))
        comparison.m_Kind = Comparison::kGreaterEqual;
    else if (dynamic_cast<const ExpressionEvalLEOp*>(node))
        comparison.m_Kind = Comparison::kLessEqual;
    else
        return false;
    return AsOperand(binary->Left(), comparison.m_LeftIsSlot, comparison.m_LeftIndex,
                     comparison.m_LeftValue) &&
           AsOperand(binary->Right(), comparison.m_RightIsSlot, comparison.m_RightIndex,
                     comparison.m_RightValue);
}

template <class Op> class ExpressionEvalFusedLogicalOp final : public Op {
public:
    ExpressionEvalFusedLogicalOp(ExpressionEvalOp* left, ExpressionEvalOp* right,
                                 const Condition& condition)
        : Op(left, right), m_Test(condition) {}
    double Evaluate(ExpressionEvalContext& context) const override {
        return m_Test.Holds(context) ? 1.0 : 0.0;
    }
    const Condition& Test() const { return m_Test; }

private:
    Condition m_Test;
};

using FusedAnd = ExpressionEvalFusedLogicalOp<ExpressionEvalLogicalAndOp>;
using FusedOr = ExpressionEvalFusedLogicalOp<ExpressionEvalLogicalOrOp>;

class ExpressionEvalFusedConditionalOp final : public ExpressionEvalConditionalOp {
public:
    ExpressionEvalFusedConditionalOp(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                                     ExpressionEvalOp* elsePart, const Condition& test)
        : ExpressionEvalConditionalOp(condition, thenPart, elsePart), m_Test(test) {}
    double Evaluate(ExpressionEvalContext& context) const override {
        if (m_Test.Holds(context))
            return m_Then->Evaluate(context);
        return m_Else ? m_Else->Evaluate(context) : 0.0;
    }

private:
    Condition m_Test;
};

} // namespace

template <class Op>
ExpressionEvalOp* MakeLogicalOp(ExpressionEvalOp* left, ExpressionEvalOp* right) {
    Condition condition{};
    condition.m_Join =
        std::is_same_v<Op, ExpressionEvalLogicalAndOp> ? Condition::kAnd : Condition::kOr;
    if (AsComparison(left, condition.m_First) && AsComparison(right, condition.m_Second))
        return new ExpressionEvalFusedLogicalOp<Op>(left, right, condition);
    return new Op(left, right);
}

template ExpressionEvalOp* MakeLogicalOp<ExpressionEvalLogicalAndOp>(ExpressionEvalOp*,
                                                                     ExpressionEvalOp*);
template ExpressionEvalOp* MakeLogicalOp<ExpressionEvalLogicalOrOp>(ExpressionEvalOp*,
                                                                    ExpressionEvalOp*);

ExpressionEvalOp* MakeConditionalOp(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                                    ExpressionEvalOp* elsePart) {
    Condition test{};
    test.m_Join = Condition::kSingle;
    bool fused = AsComparison(condition, test.m_First);
    if (!fused) {
        if (typeid(*condition) == typeid(FusedAnd)) {
            test = static_cast<const FusedAnd*>(condition)->Test();
            fused = true;
        } else if (typeid(*condition) == typeid(FusedOr)) {
            test = static_cast<const FusedOr*>(condition)->Test();
            fused = true;
        }
    }
    if (fused)
        return new ExpressionEvalFusedConditionalOp(condition, thenPart, elsePart, test);
    return new ExpressionEvalConditionalOp(condition, thenPart, elsePart);
}

template <class Op>
ExpressionEvalOp* MakeBinaryOp(ExpressionEvalOp* left, ExpressionEvalOp* right) {
    ExpressionEvalOp* fused = nullptr;
    if (auto* s = AsSlot(left))
        fused = WithRight<Op>(left, right, SlotOperand{s->Index()});
    else if (!AsConstant(left))
        fused = WithRight<Op>(left, right, NodeOperand{left});
    return fused ? fused : new Op(left, right);
}

template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalAddOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalSubOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalTimesOp>(ExpressionEvalOp*,
                                                               ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalDivOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalEqualsOp>(ExpressionEvalOp*,
                                                                ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalNEOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalGTOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalLTOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalGEOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalLEOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalFMODOp>(ExpressionEvalOp*, ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalBitAndOp>(ExpressionEvalOp*,
                                                                ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalBitOrOp>(ExpressionEvalOp*,
                                                               ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalBitXOrOp>(ExpressionEvalOp*,
                                                                ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalLShiftOp>(ExpressionEvalOp*,
                                                                ExpressionEvalOp*);
template ExpressionEvalOp* MakeBinaryOp<ExpressionEvalRShiftOp>(ExpressionEvalOp*,
                                                                ExpressionEvalOp*);
