// The two roads of a mem file into an Oracle mem table: over an external table, which the service
// takes, and through the loader tool, which is kept ready. The statements are the loader templates.
//
// False: logged, and nothing was undone.
#pragma once

#include <string>
#include <string_view>

#include "config/dbinfo.h"
#include "spool/mem_file.h"
#include "tables/store.h"

// Declares the folder of the file's database and the external table over the file.
bool CreateExternalTable(Store& store, const MemFile& file);
// Copies the rows of the external table into the mem table and drops the external table.
bool LoadOverExternalTable(Store& store, const MemFile& file);

// Writes the control file of the loader tool and starts the tool on `data_file` as `user`, without
// waiting for its end.
bool StartLoaderTool(Store& store, const std::string& table, const std::string& user,
                     const std::string& password, const std::string& data_file);

// The text of the first element at `path` of `file` or, with both of them given, of the first
// element from there on whose `attribute` has that `value`. Empty on any failure.
std::string ReadTemplate(const std::string& file, const std::string& path,
                         const std::string& attribute, const std::string& value);
