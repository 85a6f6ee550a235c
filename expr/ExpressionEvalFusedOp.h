// Specialised operator nodes for operands that are plain variables or constants.
//
// Most filter scripts compare a packet field with a constant or another field. A node that reads
// such operands itself, instead of calling into two leaf nodes, saves two virtual calls per
// operator. The specialised node is a subclass of the operator's own class, keeps the leaves as
// its children (so it prints and is destroyed like the plain node) and shares its arithmetic
// through the operator's static Apply, so its results are identical.
#pragma once

class ExpressionEvalOp;

// Builds operator class `Op` over `left` and `right` (both present), specialised where an
// operand allows it. Instantiated for the numeric and word operators of ExpressionEvalOp.h.
template <class Op> ExpressionEvalOp* MakeBinaryOp(ExpressionEvalOp* left, ExpressionEvalOp* right);

// The same for the short-circuit operators (ExpressionEvalLogicalAndOp, ExpressionEvalLogicalOrOp)
// and for ExpressionEvalConditionalOp (`elsePart` may be absent): a condition made of one or two
// comparisons of plain variables and constants is tested in place, without visiting the
// comparison nodes.
template <class Op>
ExpressionEvalOp* MakeLogicalOp(ExpressionEvalOp* left, ExpressionEvalOp* right);
ExpressionEvalOp* MakeConditionalOp(ExpressionEvalOp* condition, ExpressionEvalOp* thenPart,
                                    ExpressionEvalOp* elsePart);
