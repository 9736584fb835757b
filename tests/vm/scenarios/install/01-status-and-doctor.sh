# SPDX-License-Identifier: Apache-2.0
# After apt has installed the packages, both users are told that everything is there.
# needs: packages
source /vm/lib.sh
source /vm/product.sh

have_packages
active_session alice
product status --json | jq -e .installed
product doctor
remote_session bob
product status --json | jq -e .installed
