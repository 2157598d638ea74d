# The wired interface as the network tools see it; read by them, not run. Its values live in /run and start as a lease
# from the DHCP server does. The MAC address is what the boot loader handed over at power-on. Without the cable the
# manager keeps its configuration, but the interface has no address.

interface_file=/run/eth0.state
read -r mac < /opt/board/state/mac

method=dhcp address=192.168.0.57 netmask=255.255.255.0 gateway=192.168.0.1
[ -r "$interface_file" ] && . "$interface_file"
read -r cable < /opt/board/state/lan

# Replaced whole, so that a tool that runs meanwhile reads the old or the new values.
save_interface() {
    printf 'method=%s address=%s netmask=%s gateway=%s\n' "$method" "$address" "$netmask" "$gateway" \
        > "$interface_file.$$" && mv "$interface_file.$$" "$interface_file"
}

lease_interface() {
    method=dhcp address=192.168.0.57 netmask=255.255.255.0 gateway=192.168.0.1
    save_interface
}

is_address() {
    echo "$1" | grep -Eq '^(25[0-5]|2[0-4][0-9]|1?[0-9]?[0-9])(\.(25[0-5]|2[0-4][0-9]|1?[0-9]?[0-9])){3}$'
}

# broadcast ADDRESS NETMASK
broadcast() {
    IFS=.
    set -- $1 $2
    unset IFS
    echo "$(($1 | (255 - $5))).$(($2 | (255 - $6))).$(($3 | (255 - $7))).$(($4 | (255 - $8)))"
}
