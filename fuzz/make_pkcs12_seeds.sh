#!/usr/bin/env bash
# Writes the PKCS#12 seeds that open with pkcs12_fuzz's fixed password "secret": one with today's
# algorithms and a MAC, one without a MAC and one without any encryption, so that mutations can
# reach the bags and the certificate instead of stopping at the integrity check.
set -euo pipefail
out="$(cd "$(dirname "$0")" && pwd)/corpus/pkcs12_fuzz"
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
mkdir -p "$out"
openssl ecparam -name prime256v1 -genkey -noout -out "$work/key.pem"
openssl req -new -x509 -key "$work/key.pem" -subj "/C=CN/O=Seed/CN=seed" -days 3650 \
  -out "$work/cert.pem" 2>/dev/null
openssl pkcs12 -export -in "$work/cert.pem" -inkey "$work/key.pem" -passout pass:secret \
  -out "$out/secret.p12"
openssl pkcs12 -export -in "$work/cert.pem" -inkey "$work/key.pem" -passout pass:secret -nomac \
  -out "$out/secret_nomac.p12"
openssl pkcs12 -export -in "$work/cert.pem" -inkey "$work/key.pem" -passout pass:secret -nomac \
  -certpbe NONE -keypbe NONE -out "$out/secret_plain.p12"
