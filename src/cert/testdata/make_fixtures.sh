#!/bin/sh
# Regenerates the certificate fixtures of the zel_cert tests with the openssl command line.
# The outputs are committed: the tests read them and never run this script. Keys and serial
# numbers are random, so a new run changes every file; the tests read values such as
# fingerprints from the files themselves and do not depend on one particular run.
#
# usage: src/cert/testdata/make_fixtures.sh   (writes beside itself)
set -eu
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/ca.cnf" <<'CNF'
[ca]
default_ca = ca_default

[ca_default]
dir = WORKDIR
database = $dir/index.txt
new_certs_dir = $dir/issued
serial = $dir/serial
default_md = sha256
policy = policy_any
unique_subject = no
copy_extensions = none
preserve = yes
email_in_dn = yes

[policy_any]
countryName = optional
stateOrProvinceName = optional
localityName = optional
organizationName = optional
organizationalUnitName = optional
commonName = optional
emailAddress = optional

[req]
distinguished_name = req_dn
string_mask = utf8only
utf8 = yes
prompt = no

[req_dn]
CN = unused

# Root CA: every extension the reader knows, with the awkward corners of each list.
[ext_root]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid:always
basicConstraints = critical, CA:TRUE, pathlen:2
keyUsage = critical, digitalSignature, keyCertSign, cRLSign
extendedKeyUsage = serverAuth, clientAuth, 1.3.6.1.4.1.55555.7.1
crlDistributionPoints = crl_two_uris, crl_one_uri, crl_relative, crl_boundary
authorityInfoAccess = OCSP;URI:http://ocsp.example.test, caIssuers;URI:http://pki.example.test/root.cer, caIssuers;dirName:aia_dir

[crl_two_uris]
fullname = URI:http://crl1.example.test/root.crl, URI:http://crl2.example.test/root.crl

[crl_one_uri]
fullname = URI:ldap://crl3.example.test/cn=root

[crl_relative]
relativename = crl_rdn

[crl_rdn]
CN = Root CRL

# URIs of six characters are too short to show; seven are enough.
[crl_short]
fullname = URI:ab:cde

[crl_boundary]
fullname = URI:ab:cde, URI:x:abcde

[aia_dir]
CN = AIA directory name

# End entity: not a CA, a usual key usage, one distribution point.
[ext_leaf]
authorityKeyIdentifier = keyid
subjectKeyIdentifier = hash
basicConstraints = CA:FALSE
keyUsage = digitalSignature, keyEncipherment
extendedKeyUsage = clientAuth, emailProtection
crlDistributionPoints = URI:http://crl1.example.test/root.crl
authorityInfoAccess = caIssuers;URI:http://pki.example.test/root.cer

# Odd corners: CA without a path length, only decipherOnly (a two-byte bit string), empty key
# identifiers written as raw DER (the subject one with a long-form length, since the tool drops
# an empty identifier written plainly), an access description that holds a directory name only.
[ext_odd]
basicConstraints = CA:TRUE
keyUsage = decipherOnly
2.5.29.14 = DER:04:81:00
2.5.29.35 = DER:30:02:80:00
authorityInfoAccess = caIssuers;dirName:aia_dir
crlDistributionPoints = crl_relative, crl_short

[ext_ec]
subjectKeyIdentifier = hash
basicConstraints = CA:FALSE
keyUsage = digitalSignature, keyAgreement

[ext_sm2]
subjectKeyIdentifier = hash
basicConstraints = critical, CA:TRUE, pathlen:0
keyUsage = keyCertSign, cRLSign, digitalSignature
CNF
sed -i "s|WORKDIR|$work|" "$work/ca.cnf"
mkdir "$work/issued"
: >"$work/index.txt"
echo 1000 >"$work/serial"

# ca signs a request with fixed validity dates, which neither req nor x509 can set here.
# usage: sign CSR OUT START END EXT [CA-CERT CA-KEY | -selfsign KEY]
sign() {
  csr=$1 out=$2 start=$3 end=$4 ext=$5
  shift 5
  if [ "$1" = -selfsign ]; then
    set -- -selfsign -keyfile "$2"
  else
    set -- -cert "$1" -keyfile "$2"
  fi
  if [ "$ext" = none ]; then extopt=""; else extopt="-extensions $ext"; fi
  # shellcheck disable=SC2086
  openssl ca -batch -config "$work/ca.cnf" -notext -preserveDN -utf8 $extopt \
    -startdate "$start" -enddate "$end" -in "$csr" -out "$out" "$@" 2>"$work/ca.log" || { cat "$work/ca.log" >&2; exit 1; }
}

req() {  # usage: req KEY SUBJECT OUT-CSR [extra options]
  key=$1 subj=$2 out=$3
  shift 3
  openssl req -new -config "$work/ca.cnf" -utf8 -key "$key" -subj "$subj" -out "$out" "$@" 2>"$work/ca.log" || { cat "$work/ca.log" >&2; exit 1; }
}

openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$work/root.key" 2>/dev/null
openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$work/leaf.key" 2>/dev/null
openssl genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out "$work/ec.key"
openssl genpkey -algorithm SM2 -out "$work/sm2.key"

# Root: repeated OU, an e-mail attribute, UTF-8 text, UTCTime from the last day of February in a
# leap year to GeneralizedTime at the end of a century's last day.
req "$work/root.key" "/C=CN/ST=北京/L=Haidian/O=Zel Test Org/OU=Unit B/OU=Unit C/CN=Zel Test Root CA/emailAddress=root@example.test" "$work/root.csr"
sign "$work/root.csr" "$work/root.pem" 240228200000Z 20991231235959Z ext_root -selfsign "$work/root.key"

# Leaf: UTCTime at the end of April and the turn of a year (two-digit year 50 is 1950 in the
# certificate, which the reader shows as 2050).
req "$work/leaf.key" "/C=CN/O=Zel Test Org/OU=Leaf Unit/CN=leaf.example.test" "$work/leaf.csr"
sign "$work/leaf.csr" "$work/leaf.pem" 240430200000Z 491231200000Z ext_leaf "$work/root.pem" "$work/root.key"
sign "$work/leaf.csr" "$work/leaf1950.pem" 500101000000Z 000228200000Z ext_leaf "$work/root.pem" "$work/root.key"

# Century rules of February: 2100 is no leap year, 2400 is one.
req "$work/root.key" "/CN=Zel Odd Corners" "$work/odd.csr"
sign "$work/odd.csr" "$work/odd.pem" 21000228200000Z 24000228200000Z ext_odd -selfsign "$work/root.key"

# Version 1: no extensions at all; times around a month end without a day carry.
req "$work/leaf.key" "/C=US/CN=Zel Version One" "$work/v1.csr"
sign "$work/v1.csr" "$work/v1.pem" 230228200000Z 230331155959Z none -selfsign "$work/leaf.key"

req "$work/ec.key" "/C=DE/O=Zel EC/CN=Zel EC P-256" "$work/ec.csr"
sign "$work/ec.csr" "$work/ec.pem" 241231160000Z 341231155959Z ext_ec -selfsign "$work/ec.key"

# SM2 with SM3 as the digest and the distinguishing identifier of the standard.
openssl req -x509 -config "$work/ca.cnf" -utf8 -key "$work/sm2.key" -sm3 \
  -sigopt distid:1234567812345678 -subj "/C=CN/O=Zel SM/CN=Zel SM2 Test" -days 3650 \
  -extensions ext_sm2 -out "$work/sm2.pem"

for name in root leaf leaf1950 odd v1 ec sm2; do
  openssl x509 -in "$work/$name.pem" -out "$name.pem"
  openssl x509 -in "$work/$name.pem" -outform DER -out "$name.der"
done

# PKCS#7: the root alone in both encodings, a chain of three, an empty signed-data, and an
# enveloped-data message that carries no certificate list at all.
openssl crl2pkcs7 -nocrl -certfile root.pem -out root.p7b
openssl crl2pkcs7 -nocrl -certfile root.pem -outform DER -out root.p7b.der
cat leaf.pem root.pem ec.pem >chain.pem
openssl crl2pkcs7 -nocrl -certfile chain.pem -out chain3.p7b
openssl crl2pkcs7 -nocrl -certfile chain.pem -outform DER -out chain3.p7b.der
openssl crl2pkcs7 -nocrl -outform DER -out empty_signed.p7b.der
openssl crl2pkcs7 -nocrl -out empty_signed.p7b
printf 'zelutility enveloped data\n' >"$work/msg.txt"
openssl smime -encrypt -aes256 -in "$work/msg.txt" -outform DER -out enveloped.p7m.der leaf.pem
openssl smime -encrypt -aes256 -in "$work/msg.txt" -outform PEM -out enveloped.p7m leaf.pem

# PKCS#12: today's algorithms with a password and with an empty one, the legacy algorithms
# (RC2-40 certificates, 3DES key, SHA-1 MAC), and a container that holds only a key.
openssl pkcs12 -export -in leaf.pem -inkey "$work/leaf.key" -certfile root.pem \
  -passout pass:zel-secret -out leaf.p12
openssl pkcs12 -export -in leaf.pem -inkey "$work/leaf.key" -passout pass: -out leaf_nopass.p12
openssl pkcs12 -export -legacy -in root.pem -inkey "$work/root.key" \
  -passout pass:zel-legacy -out root_legacy.p12
openssl pkcs12 -export -nocerts -inkey "$work/leaf.key" -passout pass:zel-secret -out keyonly.p12 2>/dev/null
