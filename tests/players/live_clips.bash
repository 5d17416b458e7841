# Clips that are harder to stream than the sample clip. Sourced, not run.

# make_noise <rate> <seconds> <encoder's option>...: stereo noise, no frame of which is like another,
# becomes clip_aac
make_noise() {
    local source=anoisesrc=sample_rate=$1:duration=$2:color=white:amplitude=0.9
    clip_aac=$work/noise.aac
    ffmpeg -nostdin -v error -y -f lavfi -i "$source:seed=1[left];$source:seed=2[right];
        [left][right]amerge" -ac 2 -c:a aac "${@:3}" -f adts "$clip_aac" </dev/null &&
        ffmpeg -nostdin -v error -y -i "$clip_aac" -c copy -bsf:a aac_adtstoasc -f framecrc \
            "$work/noise.frames" </dev/null || fail "ffmpeg made no sound: status $?"
}

# make_b_pictures <seconds>: two B pictures between two others, and four slices in each, become
# clip_h264, and in times it is when they are shown. The encoder's own SEI is left out.
make_b_pictures() {
    clip_h264=$work/b_pictures.h264
    times=$work/b_pictures.times
    ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=320x180:rate=25:duration=$1" \
        -c:v libx264 -preset veryfast -threads 1 -bf 2 -b_strategy 0 -slices 4 -g 25 \
        -bsf:v filter_units=remove_types=6 "$work/b_pictures.mp4" </dev/null &&
        ffmpeg -nostdin -v error -y -i "$work/b_pictures.mp4" -c copy "$clip_h264" </dev/null &&
        ffprobe -v error -show_entries packet=pts_time -of csv=p=0 "$work/b_pictures.mp4" \
            >"$times" </dev/null || fail "ffmpeg made no pictures: status $?"
}
