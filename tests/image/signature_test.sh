#!/bin/bash
# Signs the module with a test certificate and looks at what the signature holds.
# Usage: tests/image/signature_test.sh KOLM_SYS
set -euo pipefail
module=$1
sign=$(dirname "$(realpath "$0")")/../../scripts/sign-test.sh

fail() {
  echo "$*" >&2
  exit 1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
verify() { osslsigncode verify -CAfile "$work/signed/kolm-test.pem" -in "$1" 2>&1; }

"$sign" "$module" "$work/signed"
signed=$work/signed/Kolm.sys
said=$(verify "$signed") || fail "the signature does not verify: $said"
grep -q '^Signature verification: ok' <<<"$said" || fail "not verified: $said"
grep -q 'CN *= *Kolm test' <<<"$said" || fail "signed by somebody else: $said"
grep -q 'Message digest algorithm *: SHA256' <<<"$said" || fail "another digest: $said"
/usr/bin/python3 -c 'import pefile, sys; sys.exit(not pefile.PE(sys.argv[1]).verify_checksum())' \
  "$signed" || fail "the checksum is wrong"

# Of the module only the header's checksum and its pointer to the signature differ.
size=$(stat -c %s "$module")
changed=$({ cmp -l "$module" <(head -c "$size" "$signed") || true; } | wc -l)
[ "$changed" -le 12 ] || fail "$changed bytes of the module were changed"

if verify "$module" >/dev/null; then fail "an unsigned file verifies"; fi
cp "$signed" "$work/Kolm.sys"
byte=$(od -An -tu1 -j 8000 -N 1 "$signed")
printf '%b' "\\$(printf %03o $((byte ^ 1)))" |
  dd of="$work/Kolm.sys" bs=1 seek=8000 conv=notrunc status=none
if verify "$work/Kolm.sys" >/dev/null; then fail "a changed file verifies"; fi

# The second time the certificate is the one that test machines have installed already.
certificate=$(sha256sum <"$work/signed/kolm-test.cer")
"$sign" "$module" "$work/signed"
[ "$certificate" = "$(sha256sum <"$work/signed/kolm-test.cer")" ] || fail "another certificate"
verify "$signed" >/dev/null || fail "the second signature does not verify"
[ "$(stat -c %a "$work/signed/kolm-test.key")" = 600 ] || fail "others can read the key"
