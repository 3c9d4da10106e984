// What the words of an SQL statement tell, without a server.
//
// The statements come from the definition files, so they may be written in any way that a server
// takes. Nothing here parses SQL: each question is answered by the words that occur, and errs on
// the side on which an operator is asked to look once more.
#pragma once

#include <string>
#include <vector>

namespace ctl {

// Whether `part` occurs in `text`, in any letter case.
bool ContainsWords(const std::string& text, const std::string& part);
// Whether a table `name` occurs in `text` and does not go on there, in any letter case: T_1M_201212
// does not stand in T_1M_20121231.
bool NamesTable(const std::string& text, const std::string& name);

// The engine that a create statement names, in small letters; empty when it names none.
std::string EngineOf(const std::string& create);
// Whether a create statement speaks of a key. A column called user_key is none.
bool NamesKey(const std::string& create);
// Whether a conversion adds to rows that are there already, which works only where the table has a
// key to know them by.
bool AddsUp(const std::string& convert);

// What a statement could do outside of the current database, as a text that goes on after "it";
// empty when it cannot do anything there. `databases` are the names of the server's other
// databases, in small letters.
std::string ReachOf(const std::string& statement, const std::vector<std::string>& databases);

}  // namespace ctl
