#!/bin/bash
# Signs a built Kolm.sys for machines in test mode, with a test certificate that is made the first
# time and kept, and verifies the result.
# Usage: scripts/sign-test.sh [KOLM_SYS [FOLDER]]
#   KOLM_SYS   build/kernel/Kolm.sys
#   FOLDER     build/signed; receives Kolm.sys, kolm-test.cer for the test machine, kolm-test.pem,
#              kolm-test.key
set -euo pipefail
checkout=$(dirname "$(realpath "$0")")/..
module=${1-$checkout/build/kernel/Kolm.sys}
folder=${2-$checkout/build/signed}

mkdir -p "$folder"
if [ ! -e "$folder/kolm-test.pem" ]; then
  # The certificate is its own authority: the test machine trusts it by itself.
  openssl req -x509 -newkey rsa:3072 -sha256 -nodes -days 730 -subj '/CN=Kolm test' \
    -addext 'basicConstraints=critical,CA:TRUE' -addext 'keyUsage=critical,digitalSignature' \
    -addext 'extendedKeyUsage=codeSigning' -keyout "$folder/kolm-test.key" \
    -out "$folder/kolm-test.pem" 2>/dev/null
  chmod 600 "$folder/kolm-test.key"
  openssl x509 -in "$folder/kolm-test.pem" -outform DER -out "$folder/kolm-test.cer"
fi
# osslsigncode refuses to write over a file.
rm -f "$folder/Kolm.sys"
osslsigncode sign -certs "$folder/kolm-test.pem" -key "$folder/kolm-test.key" -h sha256 \
  -n Kolm -in "$module" -out "$folder/Kolm.sys" >/dev/null
osslsigncode verify -CAfile "$folder/kolm-test.pem" -in "$folder/Kolm.sys" >/dev/null
echo "signed: $(realpath "$folder")/Kolm.sys"
