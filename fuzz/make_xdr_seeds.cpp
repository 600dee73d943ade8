// Writes one reply of every procedure for the corpus of fuzz_xdr_replies: make_xdr_seeds DIRECTORY
#include <fstream>
#include <string>

#include "support/wire_filler.h"
#include "support/wire_peers.h"
#include "support/xdr_streams.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  char number = 0;
  tally::for_each_procedure([&]<class Procedure>(const Procedure& procedure) {
    typename Procedure::Result reply;
    tally::WireFiller(1, 2, 2).fill(reply);
    const tally::Bytes bytes =
        tally::encode_bytes(tally::xdr_wire<typename Procedure::Result>, reply);
    std::ofstream(std::string(argv[1]) + "/" + procedure.name, std::ios::binary)
        << number++ << std::string(bytes.begin(), bytes.end());
  });
}
