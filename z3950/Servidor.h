#pragma once

// The program orvex-z3950: YAZ's generic front-end server answering Z39.50
// and SRU (GET, POST and SOAP, versions 1.1 to 2.0) on the same port over
// the book catalogue of an Orvex configuration file:
//
//   orvex-z3950 -c /path/to/demo.cfg [YAZ server options] [listener ...]
//
// -c names the configuration file whose "BASE:" section gives the
// catalogue's directory; every other option and the listeners
// ("tcp:@:2100") are YAZ's (-S: one process, -T: a thread per connection,
// default: a process per connection; -t minutes of idleness before a
// connection is closed, 2 unless given; -k the largest message in
// kilobytes; -l log file).
// The catalogue answers as the databases "libros" and "Default".
namespace orvex::z3950 {

int Principal(int argc, char** argv);

}  // namespace orvex::z3950
