# Sourced by the other scripts: quiet stages that print one line each and keep the full output
# in a log file, named when a stage fails.
zor_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
zor_logs=${ZOR_LOG_DIR:-$zor_root/build-logs}
mkdir -p "$zor_logs"

# zor_step LABEL LOG COMMAND...: runs COMMAND with its output appended to LOG; prints
# "LABEL ... ok (12 s)", or on failure the last lines of LOG and where the rest is, then exits.
zor_step() {
    local label=$1 log=$2
    shift 2
    local start=$SECONDS
    printf '%-52s ' "$label ..."
    if "$@" >>"$log" 2>&1; then
        echo "ok ($((SECONDS - start)) s)"
        return 0
    fi
    echo "FAILED after $((SECONDS - start)) s"
    echo "---- last lines of $log ----"
    tail -n 25 "$log"
    echo "---- the whole output is in $log ----"
    exit 1
}
