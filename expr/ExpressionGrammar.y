/* The grammar of the expression language. Every action is one builder call; type checks and
 * node construction live in ExpressionBuilder. The parser is pure: all its state is on its own
 * stack and in the builder handed to it. */

%require "3.8"
%define api.pure full
%define api.prefix {zorexpr_}
%param {ExpressionBuilder* b}
%expect 0

%code requires {
#include "expr/ExpressionBuilder.h"
#include <string>
}

%code {
#include "expr/ExpressionEvalOp.h"
#include "expr/ExpressionScanner.h"

/* The stack holds plain pointers and numbers, so it may be moved when it grows; its bound is
 * the language's stack limit, reported as "Parser stack overflow". */
#define ZOREXPR_STYPE_IS_TRIVIAL 1
#define YYMAXDEPTH ExpressionBuilder::kMaxDepth

static int zorexpr_lex(ZOREXPR_STYPE* value, ExpressionBuilder* b);
static void zorexpr_error(ExpressionBuilder* b, const char* message) { b->ParserError(message); }
}

%union {
    ExpressionEvalOp* m_Node;
    ExpressionList m_List;
    double m_Number;
    std::string* m_Text;
    int m_Integer;
}

%token <m_Number> NUMBER
%token <m_Text> STRING
%token <m_Integer> IDENTIFIER PRINT
%token EQ NE AND OR LE GE LSHIFT RSHIFT
%token FLOOR CEIL FMOD SET STRMATCH IF ELSE WHILE

%type <m_Node> expr sequence statement block
%type <m_List> list body

%destructor { delete $$; } <m_Node> <m_Text>
%destructor { ExpressionBuilder::DeleteList($$); } <m_List>

/* Lowest first. */
%precedence '='
%right '?' ':'
%left OR
%left AND
%left '|'
%left '^'
%left '&'
%left EQ NE
%left '<' '>' LE GE
%left LSHIFT RSHIFT
%left '+' '-'
%left '*' '/'
%precedence '!' UMINUS

%%

script:
    body                                    { b->SetRoot(b->CloseList($1)); }
    ;

/* The last statement of a script or block may omit its ';'. */
body:
    list                                    { $$ = $1; }
  | list sequence                           { $$ = b->AppendToList($1, $2); }
  | sequence                                { $$ = b->StartList($1); }
    ;

list:
    statement                               { $$ = b->StartList($1); }
  | list statement                          { $$ = b->AppendToList($1, $2); }
    ;

statement:
    sequence ';'                            { $$ = $1; }
  | IF '(' expr ')' block                   { $$ = b->If($3, $5); }
  | IF '(' expr ')' block ELSE block        { $$ = b->IfElse($3, $5, $7); }
  | WHILE '(' expr ')' block                { $$ = b->While($3, $5); }
  | block                                   { $$ = $1; }
  | error ';'                               { $$ = nullptr; }
    ;

block:
    '{' body '}'                            { $$ = b->CloseList($2); }
  | '{' error '}'                           { $$ = nullptr; }
    ;

sequence:
    expr                                    { $$ = $1; }
  | sequence ',' expr                       { $$ = b->Sequence($1, $3); }
    ;

expr:
    NUMBER                                  { $$ = b->Number($1); }
  | STRING                                  { $$ = b->String($1); }
  | IDENTIFIER                              { $$ = b->Variable($1); }
  | '$' IDENTIFIER                          { $$ = b->StringVariable($2); }
  | IDENTIFIER '=' expr                     { $$ = b->Assign($1, $3); }
  | SET IDENTIFIER '=' expr                 { $$ = b->Assign($2, $4); }
  | '$' IDENTIFIER '=' expr                 { $$ = b->StringAssign($2, $4); }
  | SET '$' IDENTIFIER '=' expr             { $$ = b->StringAssign($3, $5); }
  | '(' expr ')'                            { $$ = $2; }
  | '!' expr                                { $$ = b->Not($2); }
  | '-' expr %prec UMINUS                   { $$ = b->Negate($2); }
  | expr '+' expr                           { $$ = b->Operator(ExpressionBuilder::kAdd, $1, $3); }
  | expr '-' expr                           { $$ = b->Operator(ExpressionBuilder::kSub, $1, $3); }
  | expr '*' expr                           { $$ = b->Operator(ExpressionBuilder::kTimes, $1, $3); }
  | expr '/' expr                           { $$ = b->Operator(ExpressionBuilder::kDiv, $1, $3); }
  | expr EQ expr                            { $$ = b->Operator(ExpressionBuilder::kEquals, $1, $3); }
  | expr NE expr                            { $$ = b->Operator(ExpressionBuilder::kNotEquals, $1, $3); }
  | expr '>' expr                           { $$ = b->Operator(ExpressionBuilder::kGreater, $1, $3); }
  | expr '<' expr                           { $$ = b->Operator(ExpressionBuilder::kLess, $1, $3); }
  | expr GE expr                            { $$ = b->Operator(ExpressionBuilder::kGreaterEqual, $1, $3); }
  | expr LE expr                            { $$ = b->Operator(ExpressionBuilder::kLessEqual, $1, $3); }
  | expr '&' expr                           { $$ = b->Operator(ExpressionBuilder::kBitAnd, $1, $3); }
  | expr '|' expr                           { $$ = b->Operator(ExpressionBuilder::kBitOr, $1, $3); }
  | expr '^' expr                           { $$ = b->Operator(ExpressionBuilder::kBitXOr, $1, $3); }
  | expr LSHIFT expr                        { $$ = b->Operator(ExpressionBuilder::kShiftLeft, $1, $3); }
  | expr RSHIFT expr                        { $$ = b->Operator(ExpressionBuilder::kShiftRight, $1, $3); }
  | expr AND expr                           { $$ = b->Operator(ExpressionBuilder::kLogicalAnd, $1, $3); }
  | expr OR expr                            { $$ = b->Operator(ExpressionBuilder::kLogicalOr, $1, $3); }
  | expr '?' expr ':' expr                  { $$ = b->Choice($1, $3, $5); }
  | FMOD '(' expr ',' expr ')'              { $$ = b->Fmod($3, $5); }
  | FLOOR '(' expr ')'                      { $$ = b->Floor($3); }
  | CEIL '(' expr ')'                       { $$ = b->Ceil($3); }
  | PRINT '(' expr ')'                      { $$ = b->Print($1, $3); }
  | STRMATCH '(' expr ',' expr ',' expr ')' { $$ = b->StrMatch($3, $5, $7); }
    ;

%%

/* Maps the scanner's tokens to the grammar's and moves their values onto the parser's stack. */
static int zorexpr_lex(ZOREXPR_STYPE* value, ExpressionBuilder* b) {
    ExpressionToken token;
    const int kind = b->Scanner().Next(token);
    switch (kind) {
    case kExprTokenEnd: return ZOREXPR_EOF;
    case kExprTokenNumber: value->m_Number = token.m_Number; return NUMBER;
    case kExprTokenString: value->m_Text = new std::string(std::move(token.m_Text)); return STRING;
    case kExprTokenIdentifier: value->m_Integer = token.m_Integer; return IDENTIFIER;
    case kExprTokenPrint: value->m_Integer = token.m_Integer; return PRINT;
    case kExprTokenEqual: return EQ;
    case kExprTokenNotEqual: return NE;
    case kExprTokenAnd: return AND;
    case kExprTokenOr: return OR;
    case kExprTokenLessEqual: return LE;
    case kExprTokenGreaterEqual: return GE;
    case kExprTokenShiftLeft: return LSHIFT;
    case kExprTokenShiftRight: return RSHIFT;
    case kExprTokenFloor: return FLOOR;
    case kExprTokenCeil: return CEIL;
    case kExprTokenFmod: return FMOD;
    case kExprTokenSet: return SET;
    case kExprTokenStrmatch: return STRMATCH;
    case kExprTokenIf: return IF;
    case kExprTokenElse: return ELSE;
    case kExprTokenWhile: return WHILE;
    default: return kind; /* one-character tokens are their character code */
    }
}

int ExpressionGrammarParse(ExpressionBuilder* b) { return zorexpr_parse(b); }
