// Certificates for tests, made with the openssl command. All are for a server at 127.0.0.1, unless
// their name says otherwise.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "testing/files.h"

namespace certificates {

// The files of a certificate, and of its private key.
inline std::string File(const std::string& name) { return "/tmp/certificates/" + name + ".pem"; }
inline std::string KeyFile(const std::string& name) { return "/tmp/certificates/" + name + ".key"; }

// Makes, by one authority "authority": "good", "other-name", "expired" and "client"; and
// "stranger", which has signed itself. Does so once for the process.
inline void Make() {
  static const int result = std::system(R"(set -e; mkdir -p /tmp/certificates; cd /tmp/certificates
new="-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes"
itself() { openssl req -x509 $new -keyout $1.key -out $1.pem -days 9 -subj "/CN=$1"; }
signed() {
  openssl req $new -keyout $1.key -out $1.csr -subj "/CN=$1"
  echo "subjectAltName=$2" >$1.ext
  openssl ca -batch -config ca.conf -name ca -in $1.csr -out $1.pem -extfile $1.ext -notext $3 $4
}
rm -f index*
touch index
echo "[ca]
certificate = authority.pem
private_key = authority.key
database = index
rand_serial = yes
new_certs_dir = .
default_md = sha256
default_days = 9
policy = policy
[policy]
commonName = supplied" >ca.conf
exec 2>log
itself authority; itself stranger
signed good IP:127.0.0.1; signed other-name DNS:db.example; signed client DNS:client
signed expired IP:127.0.0.1 "-startdate 20200101000000Z" "-enddate 20200201000000Z")");
  ASSERT_EQ(0, result) << ReadFile("/tmp/certificates/log");
}

// A server with these options offers TLS, with the certificate that was put in use last. It reads
// it at its start, and upon ReloadCertificates() of the server.
inline const std::string kInUse = "/tmp/certificates/in-use";
inline std::vector<std::string> ServerOptions() {
  return {"--ssl-cert=" + kInUse, "--ssl-key=" + kInUse + ".key", "--ssl-ca=" + File("authority")};
}
inline void PutInUse(const std::string& name) {
  WriteFile(kInUse, ReadFile(File(name)));
  WriteFile(kInUse + ".key", ReadFile(KeyFile(name)));
}

// Of the certificate, as the client programs take it.
inline std::string Fingerprint(const std::string& name) {
  const std::string command = "openssl x509 -noout -fingerprint -sha1 -in " + File(name) +
                              " | sed 's/.*=//' | tr -d '\\n' >/tmp/certificates/print";
  EXPECT_EQ(0, std::system(command.c_str()));
  return ReadFile("/tmp/certificates/print");
}

}  // namespace certificates
