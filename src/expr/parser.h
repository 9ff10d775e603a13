#pragma once

namespace kelva {

class Domain;
class Expression;
class Lexer;

/// Parses one expression from `lexer`, which must be using its full token
/// reader; the token that ends the expression (`,` or `)` in a list, say) is
/// pushed back for the caller.  Names are resolved among the nodes of
/// `scope`.  Errors go through the lexer's handler.  Used for expressions
/// embedded in larger texts (the model data of NET files).  Throws Error with
/// every partial tree freed.
Expression* parse_expression(Lexer& lexer, Domain& scope);

}  // namespace kelva
